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

Result<DataDictionary> Parsed(String text, OnDamage onDamage) try {
  return ParseReport(std::move(text), onDamage);
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kSource.Here());
}

}  // namespace

Result<String> CrashLog::ReadBugReport(const Url& report) try {
  FileService& files = g_tarvo.framework->Files();
  Result<String> start = files.ReadStart(report, kStartBytes);
  const bool isWhole = start && !start->IsEmpty() && start->Size() < kStartBytes;
  if (!start || isWhole) return start;
  if (!start->IsEmpty())
    if (auto wrong = FindWrongStart(*std::move(start), false)) return *wrong;
  return files.ReadText(report);
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kSource.Here());
}

Result<DataDictionary> CrashLog::ParseBugReport(const Url& report) {
  Result<String> text = ReadBugReport(report);
  if (!text) return text.GetError();
  return ParseText(*std::move(text));
}

Result<DataDictionary> CrashLog::ParseText(String text) {
  return Parsed(std::move(text), OnDamage::Fail);
}

Result<DataDictionary> CrashLog::SalvageText(String text) {
  return Parsed(std::move(text), OnDamage::GoOn);
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
