#include "toolkit/triage/reading/read_logs.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <optional>
#include <thread>
#include <variant>

#include "tarvo/crash_report.h"
#include "toolkit/base/sha256.h"
#include "toolkit/triage/reading/log_source.h"

namespace tarvo::toolkit {
namespace {

using Outcome = std::variant<std::monostate, CrashRecord, SkippedLog>;

/// Errors name the file themselves, where a skipped log is named once.
SkippedLog Skip(const std::string& path, const Error& error) {
  std::string reason = error.Text().ToStdString();
  const std::size_t name = reason.find("\": ");
  if (reason.starts_with('"') && name != std::string::npos) reason.erase(0, name + 3);
  return {path, std::move(reason)};
}

Outcome ReadText(const PendingLog& log, const std::string& text) {
  const auto document = ParseCrashDocument(text, log.path);
  if (!document) return Skip(log.path, document.GetError());
  const std::string_view report =
      FindText(document->outcome, crash_report::property::kOutcomeReport);
  std::string path = log.isLine && !report.empty() ? std::string(report) : log.path;
  const std::string_view error = FindText(document->outcome, crash_report::property::kOutcomeError);
  if (!error.empty()) return SkippedLog{std::move(path), std::string(error)};
  Sha256 hash;
  hash.Add(text);
  return MakeCrashRecord(*document, std::move(path), hash.TakeHexadecimal());
}

Outcome Read(const PendingLog& log) try {
  if (log.isLine) return ReadText(log, log.line);
  const auto text = ReadLog(log.path);
  return text ? ReadText(log, *text) : Outcome(Skip(log.path, text.GetError()));
} catch (const std::exception& exception) {
  return SkippedLog{log.path, exception.what()};
}

std::vector<Outcome> ReadPortion(const std::vector<PendingLog>& portion, std::size_t threads) {
  std::vector<Outcome> outcomes(portion.size());
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = next++; i < portion.size(); i = next++) outcomes[i] = Read(portion[i]);
  };
  std::vector<std::jthread> others;
  for (std::size_t i = 1; i < std::min(threads, portion.size()); ++i) others.emplace_back(work);
  work();
  others.clear();
  return outcomes;
}

}  // namespace

std::vector<SkippedLog> ReadLogs(const std::vector<std::string>& paths,
                                 const ReadingOptions& options) {
  LogList list = ListLogs(paths);
  LogSource source(std::move(list.files));
  std::vector<SkippedLog> skipped = std::move(list.skipped);
  std::size_t done = 0;
  for (;;) {
    const std::vector<PendingLog> portion = source.TakePortion(skipped);
    if (portion.empty()) return skipped;
    for (Outcome& outcome : ReadPortion(portion, options.threads)) {
      if (auto* record = std::get_if<CrashRecord>(&outcome)) options.take(std::move(*record));
      if (auto* log = std::get_if<SkippedLog>(&outcome)) skipped.push_back(std::move(*log));
    }
    options.onProgress(done += portion.size());
  }
}

}  // namespace tarvo::toolkit
