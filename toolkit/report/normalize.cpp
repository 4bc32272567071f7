#include "tarvo/report/normalize.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "tarvo/crash_report.h"
#include "toolkit/report/module_entries.h"
#include "toolkit/report/normalized_report.h"
#include "toolkit/report/own_frame.h"
#include "toolkit/report/report_lines.h"
#include "toolkit/report/return_addresses.h"
#include "toolkit/report/spelling.h"

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

/// What is between indentation and line end, replaced. Where a text held line ends, as many empty
/// lines follow, so that what stands behind keeps its line's number.
void AppendLine(std::string& text, std::string_view model, const auto&... parts) {
  const std::string_view end = LineEnd(model);
  const auto inner = std::ranges::count(model.substr(0, model.size() - end.size()), '\n');
  text += Indentation(model);
  (text.append(parts), ...);
  text += end;
  text.append(static_cast<std::size_t>(inner), '\n');
}

void AppendEntry(std::string& text, std::string_view model, std::string_view key,
                 std::string_view value) {
  AppendLine(text, model, key, std::string_view(" = "), ValueText(value));
}

/// A frame's function text: "update + 0x1c".
std::string FunctionText(const OwnFrame& frame) {
  const std::string function = FrameFunctionText(frame.function);
  if (frame.offset.empty()) return function.empty() ? "?" : function;
  std::string text = function;
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
  AppendLine(text, line, FrameModuleText(frame.module), crash_report::frame::kFunction,
             FunctionText(frame), crash_report::frame::kStackPointer,
             frame.stackPointer == crash_report::kNull ? kZero : frame.stackPointer,
             std::string_view(","), crash_report::frame::kProgramCounter, counter,
             std::string_view(")"));
}

/// Tells the program counter from the floating-point unit's in the register lines of a thread.
class CounterNames {
 public:
  void Append(std::string& text, std::string_view line) {
    for (std::size_t at = 0; (at = FindCounter(line, at)) != std::string_view::npos;) {
      if (std::exchange(isSeen_, true)) {
        text += line.substr(0, at);
        text += crash_report::kFloatingPointCounter;
        line.remove_prefix(at + crash_report::kProgramCounterRegister.size());
        at = 0;
      } else {
        ++at;
      }
    }
    text += line;
  }
  void StartThread() { isSeen_ = false; }

 private:
  static std::size_t FindCounter(std::string_view line, std::size_t from) {
    constexpr std::string_view kName = crash_report::kProgramCounterRegister;
    for (std::size_t at = from; (at = line.find(kName, at)) != std::string_view::npos; ++at) {
      const bool isStart = at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t';
      if (isStart && line.substr(at + kName.size()).starts_with(':')) return at;
    }
    return std::string_view::npos;
  }

  bool isSeen_ = false;
};

class OwnReport {
 public:
  OwnReport(std::vector<ReportLine> lines, ReturnAddressAdjustment adjustment)
      : lines_(std::move(lines)),
        modules_(ReadModuleEntries(lines_)),
        adjusts_(adjustment != ReturnAddressAdjustment::None) {
    ReadThreads();
    NameModules();
  }

  [[nodiscard]] NormalizedReport Text() const {
    NormalizedReport normalized;
    std::string& text = normalized.text;
    std::size_t frame = 0;
    std::size_t module = 0;
    CounterNames counters;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      const auto& [kind, line] = lines_[i];
      if (kind == LineKind::Thread) counters.StartThread();
      if (frame < frames_.size() && frameLines_[frame] == i) {
        AppendFrame(text, line, frames_[frame], LookUpAddress(frame));
        ++frame;
      } else if (module < modules_.size() && modules_[module].nameLine == i) {
        AppendEntry(text, line, crash_report::key::kModuleName, modules_[module++].name);
      } else if (kind == LineKind::Register) {
        counters.Append(text, line);
      } else if (kind == LineKind::Variable || kind == LineKind::ModuleValue) {
        AppendOther(text, line, kind == LineKind::Variable ? kVariableDepth : kInnerDepth);
      } else {
        text += line;
      }
      if (!programBuild_.empty() && i == modules_.front().lastLine) {
        if (!text.ends_with('\n')) text += '\n';
        AppendEntry(text, line.substr(0, line.find('\n') + 1), crash_report::key::kBuild,
                    programBuild_);
        normalized.addedLine = static_cast<std::size_t>(std::ranges::count(text, '\n'));
      }
    }
    return normalized;
  }

 private:
  /// An entry as it is, unless a reader would take it for another.
  static void AppendOther(std::string& text, std::string_view line, std::size_t depth) {
    if (const auto entry = SplitOwnEntry(line, depth)) {
      const std::string key = KeyText(entry->key);
      const std::string value = ValueText(entry->value);
      if (key != entry->key || value != entry->value)
        return AppendLine(text, line, key, std::string_view(" = "), value);
    }
    text += line;
  }

  [[nodiscard]] std::uint64_t LookUpAddress(std::size_t frame) const {
    const std::uint64_t address = frames_[frame].address;
    return adjusts_ && isReturn_[frame] ? AdjustedReturnAddress(address) : address;
  }

  void ReadThreads() {
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
      const auto& [kind, line] = lines_[i];
      if (kind == LineKind::Thread) endThread();
      if (kind == LineKind::Variable) ReadVariable(line, fault);
      if (kind != LineKind::Frame) continue;
      if (const auto frame = ParseOwnFrame(OwnContent(line, kInnerDepth))) {
        frames_.push_back(*frame);
        frameLines_.push_back(i);
      }
    }
    endThread();
  }

  /// What the crash guard and the capture have put among the variables: the program counter at the
  /// fault, of the thread; the program's file.
  void ReadVariable(std::string_view line, std::optional<std::uint64_t>& fault) {
    const auto variable = SplitOwnEntry(line, kVariableDepth);
    if (!variable) return;
    if (variable->key == crash_report::variable::kFaultProgramCounter && !fault)
      fault = ParseAddress(variable->value);
    if (variable->key == crash_report::variable::kProgramFile)
      programName_ = variable->value.substr(variable->value.rfind('/') + 1);
  }

  /// Gives those modules a name that are listed without one, and the program its build.
  void NameModules() {
    if (modules_.empty()) return;
    const ModuleEntry& program = modules_.front();
    if (program.name == crash_report::kUnknown && program.path.empty() && program.build.empty())
      programBuild_ = SharedBuild(modules_);
    NameProgram();
    for (ModuleEntry& module : modules_) {
      if (module.name != crash_report::kUnknown) continue;
      const bool isProgram = &module == &modules_.front() && module.path.empty();
      const std::string_view name =
          isProgram ? programName_ : module.path.substr(module.path.rfind('/') + 1);
      if (!name.empty()) module.name = name;
    }
  }

  /// The program is called by its file's name, where the report has it, else as most of its frames
  /// call it. These have the name that it was started by, which may be a link's.
  void NameProgram() {
    const AddressRange range = ProgramRange(modules_);
    if (programName_.empty()) {
      programName_ = ProgramName(range, frames_);
    } else if (modules_.front().path.empty()) {
      for (OwnFrame& frame : frames_)
        if (!frame.module.empty() && range.Holds(frame.address)) frame.module = programName_;
    }
  }

  std::vector<ReportLine> lines_;
  std::vector<ModuleEntry> modules_;
  std::string_view programName_;
  std::string_view programBuild_;        ///< what the program's entry lacks
  std::vector<OwnFrame> frames_;         ///< of all threads, with ...
  std::vector<std::size_t> frameLines_;  ///< ... the indices of their lines, and ...
  std::vector<bool> isReturn_;           ///< ... whether their addresses are return addresses
  bool adjusts_;
};

/// The capture ends lines with "\n" alone; a transfer as text may have changed that, everywhere.
std::string WithPlainLineEnds(std::string_view report) {
  constexpr std::string_view kChangedEnd = "\r\n";
  std::string text;
  text.reserve(report.size());
  for (std::size_t at = 0; (at = report.find(kChangedEnd)) != std::string_view::npos;) {
    text += report.substr(0, at);
    text += '\n';
    report.remove_prefix(at + kChangedEnd.size());
  }
  return text += report;
}

bool HasChangedLineEnds(std::string_view report) {
  return report.substr(0, report.find('\n')).ends_with('\r');
}

}  // namespace

bool IsOwnReport(std::string_view report) noexcept {
  return Magic(report) == crash_report::kTarvoMagic;
}

std::string Normalized(std::string_view report, ReturnAddressAdjustment adjustment) {
  return Normalize(report, adjustment).text;
}

NormalizedReport Normalize(std::string_view report, ReturnAddressAdjustment adjustment) {
  if (IsOwnReport(report)) {
    const std::string plain = HasChangedLineEnds(report) ? WithPlainLineEnds(report) : "";
    return OwnReport(CutOwnReport(plain.empty() ? report : plain), adjustment).Text();
  }
  if (adjustment != ReturnAddressAdjustment::AllReports) return {std::string(report)};
  return {WithReturnAddressesAdjusted(CutReport(report))};
}

}  // namespace tarvo::report
