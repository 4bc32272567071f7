#pragma once

#include <cstdint>
#include <optional>

#include "toolkit/document/crash_document.h"

namespace tarvo::toolkit {

/// What a frame's code was compiled before.
struct CompileBound {
  std::int64_t time = 0;   ///< seconds since 1970
  const char* event = "";  ///< "the crash", for people
};

/// The earliest event by which `frame`'s code is known to have been compiled: the crash (the
/// capture's own word or, where it has none, the time of the report's file), and the building of
/// the module, where its file is on this machine. Nothing where none of these is known.
[[nodiscard]] std::optional<CompileBound> FindCompileBound(const CrashDocument& document,
                                                           const DocumentFrame& frame);

}  // namespace tarvo::toolkit
