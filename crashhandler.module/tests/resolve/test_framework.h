#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/host_framework.h"
#include "recording_symbolification.h"
#include "tarvo/resolve_observer.h"
#include "tarvo/symbol_file_source.h"

namespace tarvo::crashhandler {

/// A clock that stands until a test moves it.
class TestClock final : public ClockService {
 public:
  [[nodiscard]] std::chrono::nanoseconds Now() override {
    ++reads_;
    return now_.load();
  }
  void Advance(std::chrono::nanoseconds time) { now_ = now_.load() + time; }
  /// Waits until others have looked at the clock so often that each of them has seen its time and
  /// acted on it.
  void LetOthersLook() const {
    constexpr int kReads = 10;
    for (const int start = reads_; reads_ < start + kReads;) std::this_thread::yield();
  }

 private:
  std::atomic<std::chrono::nanoseconds> now_{std::chrono::hours(1)};
  std::atomic<int> reads_{0};
};

class RecordingOutput final : public OutputService {
 public:
  void Diagnostic(SourceLocation, std::string_view text) override { Add("diagnostic: ", text); }
  void Critical(SourceLocation, std::string_view text) override { Add("critical: ", text); }
  void Console(SourceLocation, std::string_view text) override { Add("", text); }
  void Add(std::string_view before, std::string_view text) {
    const std::scoped_lock lock(mutex_);
    lines_.push_back(Format("@@", before, text).ToStdString());
  }
  [[nodiscard]] std::vector<std::string> TakeLines() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

/// Notes each frame as a line "OUTCOME BUILD ERROR", the outcome as its number.
class RecordingObserver final : public Counted<ResolveObserver> {
 public:
  explicit RecordingObserver(std::vector<std::string>& lines) : lines_(lines) {}
  void FrameDone(const FrameReport& report) override {
    const String reason = report.error == nullptr ? String() : report.error->Text();
    lines_.push_back(
        Format("@ @ @", static_cast<int>(report.outcome), report.build, reason).ToStdString());
  }

 private:
  ~RecordingObserver() override = default;
  std::vector<std::string>& lines_;
};

/// The host's own files, jobs and archives, with an output, a clock and a symbolification in the
/// test's hand. Calls of the symbolification stand among the lines of the output.
class TestFramework final : public Framework {
 public:
  OutputService& Output() override { return output; }
  FileService& Files() override { return host_.Files(); }
  ConfigurationService& Configuration() override { return host_.Configuration(); }
  JobService& Jobs() override { return host_.Jobs(); }
  DataFormatService& DataFormats() override { return host_.DataFormats(); }
  ClockService& Clock() override { return clock; }
  const CrashServices& Crash() override { return host_.Crash(); }
  Result<Ref<Object>> CreateObject(std::string_view classId) override {
    if (makeArchive && classId == ReadArchive::kZipClassId) return Ref<Object>(makeArchive());
    return host_.CreateObject(classId);
  }
  Result<Ref<Object>> Bind(std::string_view interfaceId) override {
    if (interfaceId == ResolveObserver::kInterfaceId && frames == nullptr)
      return Error::IllegalState({}, "none");
    if (interfaceId == ResolveObserver::kInterfaceId)
      return Ref<Object>(Make<RecordingObserver>(*frames));
    if (interfaceId == SymbolFileSource::kInterfaceId && makeSource) return makeSource();
    if (interfaceId == SymbolFileSource::kInterfaceId ||
        (interfaceId == InlineSymbolification::kInterfaceId && !answersChains))
      return Error::IllegalState({}, "none");
    if (interfaceId == InlineSymbolification::kInterfaceId)
      return Ref<Object>(Make<RecordingInlineSymbolification>(
          answers, [this](const String& call) { output.Add("", call); }));
    return Ref<Object>(Make<RecordingSymbolification>(
        answers, [this](const String& call) { output.Add("", call); }));
  }
  [[nodiscard]] bool IsUnderDebugger() override { return false; }
  [[nodiscard]] String ProgramDirectory() override { return {}; }
  [[nodiscard]] String ModuleDirectory() override { return {}; }

  /// Where what an observer is told goes; null: there is none.
  std::vector<std::string>* frames = nullptr;
  TestClock clock;
  RecordingOutput output;
  AnswerTable answers;
  bool answersChains = false;  ///< whether the symbolification has its second interface
  std::function<Ref<Object>()> makeSource;  ///< of symbols outside archives; none where not set
  std::function<Ref<ReadArchive>()> makeArchive;  ///< instead of the host's, where set

 private:
  HostFramework host_{clock};
};

}  // namespace tarvo::crashhandler
