#include "crashlog/crash_log.h"

#include <new>
#include <utility>

#include "connection.h"
#include "crashlog/base/source.h"
#include "crashlog/reading/report_reader.h"
#include "crashlog/resolving/frame_resolver.h"
#include "crashlog/symbols/symbol_cache.h"

namespace tarvo::crashhandler {

Result<DataDictionary> CrashLog::ParseBugReport(const Url& report) {
  try {
    Result<String> text = g_tarvo.framework->Files().ReadText(report);
    if (!text) return text.GetError();
    return ParseReport(*std::move(text));
  } catch (const std::bad_alloc&) {
    return Error::OutOfMemory(kSource.Here());
  }
}

Result<void> CrashLog::Resolve(const Url& archiveDirectory, const Url& temporaryDirectory) {
  return ResolveFrames(data_, archiveDirectory, temporaryDirectory);
}

Result<Url> CrashLog::GetSymbolFile(const String& moduleName, const String& build,
                                    const String& /*architecture*/, const Url& archiveDirectory,
                                    const Url& temporaryDirectory) {
  return SymbolCache(archiveDirectory, temporaryDirectory).GetSymbolFile(moduleName, build).bundle;
}

}  // namespace tarvo::crashhandler
