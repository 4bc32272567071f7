#include "tarvo/report/normalize.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tarvo/crash_report.h"
#include "toolkit/report/module_entries.h"
#include "toolkit/report/own_frame.h"
#include "toolkit/report/report_lines.h"
#include "toolkit/report/return_addresses.h"

namespace tarvo::report {
namespace {

/// In the place of "(nil)", which readers do not take for a number.
constexpr std::string_view kZero = "0x0";

std::string_view Indentation(std::string_view line) {
  return line.substr(0, line.find_first_not_of(" \t"));
}

std::string_view LineEnd(std::string_view line) {
  return line.substr(line.find_last_not_of("\r\n") + 1);
}

/// What is between indentation and line end, replaced.
void AppendLine(std::string& text, std::string_view model, const auto&... parts) {
  text += Indentation(model);
  (text.append(parts), ...);
  text += LineEnd(model);
}

void AppendEntry(std::string& text, std::string_view model, std::string_view key,
                 std::string_view value) {
  AppendLine(text, model, key, std::string_view(" = "), value);
}

/// The program counter that the crash guard has put among a thread's variables.
std::optional<std::uint64_t> FaultCounter(std::string_view line) {
  const auto variable = SplitKeyValue(line);
  if (!variable || variable->key != crash_report::variable::kFaultProgramCounter)
    return std::nullopt;
  return ParseAddress(variable->value);
}

/// A frame's function text: "update + 0x1c".
std::string FunctionText(const OwnFrame& frame) {
  if (frame.offset.empty()) return frame.function.empty() ? "?" : std::string(frame.function);
  std::string text(frame.function);
  text += text.empty() ? "" : " ";
  text += frame.offset.substr(0, 1);
  text += ' ';
  text += frame.offset.substr(1) == "0" ? kZero : frame.offset.substr(1);
  return text;
}

void AppendFrame(std::string& text, std::string_view line, const OwnFrame& frame,
                 std::uint64_t address) {
  std::string counter;
  AppendAddress(counter, address);
  AppendLine(text, line, frame.module, crash_report::frame::kFunction, FunctionText(frame),
             crash_report::frame::kStackPointer,
             frame.stackPointer == crash_report::kNull ? kZero : frame.stackPointer,
             std::string_view(","), crash_report::frame::kProgramCounter, counter,
             std::string_view(")"));
}

class OwnReport {
 public:
  OwnReport(std::vector<ReportLine> lines, ReturnAddressAdjustment adjustment)
      : lines_(std::move(lines)),
        modules_(ReadModuleEntries(lines_)),
        adjusts_(adjustment != ReturnAddressAdjustment::None) {
    ReadFrames();
    NameModules();
  }

  [[nodiscard]] std::string Text() const {
    std::string text;
    std::size_t frame = 0;
    std::size_t module = 0;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      const std::string_view line = lines_[i].text;
      if (frame < frames_.size() && frameLines_[frame] == i) {
        AppendFrame(text, line, frames_[frame], LookUpAddress(frame));
        ++frame;
      } else if (module < modules_.size() && modules_[module].nameLine == i) {
        AppendEntry(text, line, crash_report::key::kModuleName, modules_[module++].name);
      } else {
        text += line;
      }
      if (!programBuild_.empty() && i == modules_.front().lastLine)
        AppendEntry(text, line, crash_report::key::kBuild, programBuild_);
    }
    return text;
  }

 private:
  [[nodiscard]] std::uint64_t LookUpAddress(std::size_t frame) const {
    const std::uint64_t address = frames_[frame].address;
    return adjusts_ && isReturn_[frame] ? AdjustedReturnAddress(address) : address;
  }

  void ReadFrames() {
    // Of the current thread.
    std::size_t first = 0;
    std::optional<std::uint64_t> fault;
    const auto endThread = [&] {
      const auto isReturn = FindReturnAddresses(std::span(frames_).subspan(first), fault);
      isReturn_.insert(isReturn_.end(), isReturn.begin(), isReturn.end());
      first = frames_.size();
      fault.reset();
    };
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      if (lines_[i].kind == LineKind::Thread) endThread();
      if (lines_[i].kind == LineKind::Variable && !fault) fault = FaultCounter(lines_[i].text);
      if (lines_[i].kind != LineKind::Frame) continue;
      if (const auto frame = ParseOwnFrame(Content(lines_[i].text))) {
        frames_.push_back(*frame);
        frameLines_.push_back(i);
      }
    }
    endThread();
  }

  /// Gives those modules a name that are listed without one, and the program its build.
  void NameModules() {
    if (modules_.empty()) return;
    const ModuleEntry& program = modules_.front();
    if (program.name == crash_report::kUnknown && program.path.empty() && program.build.empty())
      programBuild_ = SharedBuild(modules_);
    const std::string_view programName = ProgramName(modules_, frames_);
    for (ModuleEntry& module : modules_) {
      if (module.name != crash_report::kUnknown) continue;
      const bool isProgram = &module == &modules_.front() && module.path.empty();
      const std::string_view name =
          isProgram ? programName : module.path.substr(module.path.rfind('/') + 1);
      if (!name.empty()) module.name = name;
    }
  }

  std::vector<ReportLine> lines_;
  std::vector<ModuleEntry> modules_;
  std::string_view programBuild_;        ///< what the program's entry lacks
  std::vector<OwnFrame> frames_;         ///< of all threads, with ...
  std::vector<std::size_t> frameLines_;  ///< ... the indices of their lines, and ...
  std::vector<bool> isReturn_;           ///< ... whether their addresses are return addresses
  bool adjusts_;
};

}  // namespace

bool IsOwnReport(std::string_view report) noexcept {
  return Magic(report) == crash_report::kTarvoMagic;
}

std::string Normalized(std::string_view report, ReturnAddressAdjustment adjustment) {
  if (IsOwnReport(report)) return OwnReport(CutReport(report), adjustment).Text();
  if (adjustment != ReturnAddressAdjustment::AllReports) return std::string(report);
  return WithReturnAddressesAdjusted(CutReport(report));
}

}  // namespace tarvo::report
