#pragma once

#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// Writes the function, source file and line of every frame of `crashLog` that can be resolved into
/// the frame, by the framework's symbolification interface (the functions
/// around it too, where that knows inlined ones), and tells the ResolveObserver, if there
/// is one, what became of each. A frame that cannot be resolved stays as it is; it is no error, and
/// the console tells why (see resolve_messages.h). The error is that there is no symbolification.
///
/// May unpack archives and then takes minutes. Any thread; several crash logs at once.
Result<void> ResolveFrames(DataDictionary& crashLog, const Url& archiveDirectory,
                           const Url& temporaryDirectory);

}  // namespace tarvo::crashhandler
