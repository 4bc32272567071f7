#include "crashlog/crash_log.h"

#include <new>
#include <utility>

#include "connection.h"
#include "crashlog/base/source.h"
#include "crashlog/reading/report_reader.h"
#include "crashlog/resolving/frame_resolver.h"
#include "crashlog/symbols/symbol_cache.h"

namespace tarvo::crashhandler {

namespace {

/// As much of a file as tells whether it is a report; of a larger one that is none no more is read.
/// Most reports are smaller, and are read at once.
constexpr std::size_t kStartBytes = 64 * 1024;

Result<DataDictionary> ReadReport(const Url& report, OnDamage onDamage) try {
  FileService& files = g_tarvo.framework->Files();
  Result<String> start = files.ReadStart(report, kStartBytes);
  if (!start) return start.GetError();
  const bool isWhole = !start->IsEmpty() && start->Size() < kStartBytes;
  if (isWhole) return ParseReport(*std::move(start), onDamage);
  if (!start->IsEmpty())
    if (auto wrong = FindWrongStart(*std::move(start), false)) return *wrong;
  Result<String> text = files.ReadText(report);
  if (!text) return text.GetError();
  return ParseReport(*std::move(text), onDamage);
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kSource.Here());
}

}  // namespace

Result<DataDictionary> CrashLog::ParseBugReport(const Url& report) {
  return ReadReport(report, OnDamage::Fail);
}

Result<DataDictionary> CrashLog::SalvageBugReport(const Url& report) {
  return ReadReport(report, OnDamage::GoOn);
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
