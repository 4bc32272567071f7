#pragma once

#include <string_view>

#include "tarvo/data_dictionary.h"
#include "tarvo/error.h"

/// What a resolve tells on the console, each a whole line and only from its diagnostic level on
/// (g_crashlogResolveDiagnosticOutput). Any thread.
namespace tarvo::crashhandler {

/// Level 2: "ThreadName: NAME", with an empty name for a thread that has none.
void ShowThread(const DataDictionary& thread);

/// Level 2: "FUNCTION in FILE  line LINE" of a frame that was resolved.
void ShowResolvedFrame(const DataDictionary& frame);

/// Level 1: why the symbols of a frame's module could not be had, unless that is the last such text
/// that any resolve of this process has written: frames that fail for one reason give one line.
void ShowSymbolFileError(const Error& error);

/// Level 1: "FUNCTION (0xADDRESS)" of a frame that could not be looked up, with its module in place
/// of a function that the report does not name.
void ShowUnresolvedFrame(const DataDictionary& frame);

}  // namespace tarvo::crashhandler
