#pragma once

#include <cstdint>

#include "tarvo/data_dictionary.h"
#include "tarvo/string.h"

/// What a crash log tells about the application as a whole and what follows from it for the names
/// of its symbols. None of it can fail; a text that is not there has its default.
namespace tarvo::crashhandler {

/// The version number in `PALLADO_Version` of the crash log's ApplicationInfo; 15.6 when there is
/// none, when the text (blanks around it aside) is no number, and when the number is 0. May be NaN,
/// where the report says so.
[[nodiscard]] double ApplicationVersion(const DataDictionary& crashLog);

/// The processor architecture that symbols are wanted for, `TargetCpuArchitecture`; "x86_64" when
/// the crash log does not tell.
[[nodiscard]] String ApplicationArchitecture(const DataDictionary& crashLog);

/// The same as the crash log tells it; empty when it does not.
[[nodiscard]] String StatedArchitecture(const DataDictionary& crashLog);

/// Rewrites the name and the base address that the report has for the application's executable into
/// those of its symbol bundle. Only for the module that is marked as the executable.
///
/// From version 15.6 on the bundle is "kernel_app.app" for the name "kernel_app" and
/// "application.app" for all others, and the base address becomes the slide from the preferred
/// 64-bit load address: 0x100000000 is subtracted, modulo 2^64. Before, and for a version that is
/// NaN, it is "Pallado Pebble.app" for names with the word of an edition in them (in any case of
/// the letters) and "Pallado.app" for all others, and addresses are absolute: the base becomes 0.
void ApplicationBundleName(const DataDictionary& crashLog, String& moduleName,
                           std::uint64_t& baseAddress);

}  // namespace tarvo::crashhandler
