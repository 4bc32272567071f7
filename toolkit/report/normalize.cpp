#include "toolkit/report/normalize.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "toolkit/report/module_entries.h"
#include "toolkit/report/own_frame.h"
#include "toolkit/report/report_lines.h"

namespace tarvo::toolkit {
namespace {

constexpr std::string_view kUnnamed = "unknown";
constexpr std::string_view kCaptureModule = "crashhandler.so";
constexpr std::string_view kHostLibrary = "libtarvo.so";

void AppendHexadecimal(std::string& text, std::uint64_t number) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
  text += "0x";
  text.append(digits, end);
}

std::string_view Indentation(std::string_view line) {
  return line.substr(0, line.find_first_not_of(" \t"));
}

std::string_view LineEnd(std::string_view line) {
  return line.substr(line.find_last_not_of("\r\n") + 1);
}

/// What is between indentation and line end, replaced.
void AppendLine(std::string& text, std::string_view model, auto... parts) {
  text += Indentation(model);
  (text.append(parts), ...);
  text += LineEnd(model);
}

// --- Which frames were interrupted ---------------------------------------------------------------

/// The kernel's way back from a signal handler, in the C library and without a name there.
bool IsSignalTrampoline(const OwnFrame& frame) {
  return frame.module.starts_with("libc") && frame.function.empty();
}

bool IsOfHandler(const OwnFrame& frame) {
  return frame.module == kCaptureModule || frame.module.starts_with(kHostLibrary);
}

/// Of one thread's frames those whose address is no return address: the first, which its stack
/// handler interrupted, and its double, for the unwinder sees that frame too; the frame that the
/// crash handler interrupted, and the trampoline in between, where nothing was called from.
///
/// After a call that led nowhere the frame in the interrupted one's place is the caller's. `fault`,
/// the program counter at the fault where the report has it, tells.
std::vector<bool> ExactFrames(std::span<const OwnFrame> frames,
                              std::optional<std::uint64_t> fault) {
  std::vector<bool> exact(frames.size(), false);
  if (frames.empty()) return exact;
  exact[0] = true;
  if (frames.size() > 1 && frames[1].address == frames[0].address) exact[1] = true;
  std::size_t at = 0;
  while (at < frames.size() && frames[at].module != kCaptureModule) ++at;
  while (at < frames.size() && IsOfHandler(frames[at])) ++at;
  if (at + 1 >= frames.size() || !IsSignalTrampoline(frames[at])) return exact;
  exact[at] = true;
  exact[at + 1] = !fault || *fault == frames[at + 1].address;
  return exact;
}

/// The program counter that the crash guard has put among a thread's variables.
std::optional<std::uint64_t> FaultCounter(std::string_view line) {
  const auto variable = SplitKeyValue(line);
  if (!variable || variable->key != "Fault_rip") return std::nullopt;
  return ParseAddress(variable->value);
}

// --- Reports of the own capture ------------------------------------------------------------------

/// A frame's function text: "update + 0x1c".
std::string FunctionText(const OwnFrame& frame) {
  if (frame.offset.empty()) return frame.function.empty() ? "?" : std::string(frame.function);
  std::string text(frame.function);
  text += text.empty() ? "" : " ";
  text += frame.offset.substr(0, 1);
  text += ' ';
  text += frame.offset.substr(1) == "0" ? "0x0" : frame.offset.substr(1);
  return text;
}

void AppendFrame(std::string& text, std::string_view line, const OwnFrame& frame, bool stepsBack) {
  std::string counter;
  AppendHexadecimal(counter, frame.address - (stepsBack && frame.address != 0 ? 1 : 0));
  AppendLine(text, line, frame.module, std::string_view(":\t"), FunctionText(frame), frame.tail,
             std::string_view(" PC: "), counter, std::string_view(")"));
}

class OwnReport {
 public:
  OwnReport(std::vector<ReportLine> lines, StepBack stepBack)
      : lines_(std::move(lines)), modules_(ReadModuleEntries(lines_)), stepBack_(stepBack) {
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
        AppendFrame(text, line, frames_[frame], stepBack_ != StepBack::None && !exact_[frame]);
        ++frame;
      } else if (module < modules_.size() && modules_[module].nameLine == i) {
        AppendLine(text, line, std::string_view("ModuleName = "), modules_[module++].name);
      } else {
        text += line;
      }
      if (!programBuild_.empty() && i == modules_.front().lastLine)
        AppendLine(text, line, std::string_view("Build = "), programBuild_);
    }
    return text;
  }

 private:
  void ReadFrames() {
    // Of the current thread.
    std::size_t first = 0;
    std::optional<std::uint64_t> fault;
    const auto endThread = [&] {
      const auto exact = ExactFrames(std::span(frames_).subspan(first), fault);
      exact_.insert(exact_.end(), exact.begin(), exact.end());
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
    if (program.name == kUnnamed && program.path.empty() && program.build.empty())
      programBuild_ = SharedBuild(modules_);
    const std::string_view programName = ProgramName(modules_, frames_);
    for (ModuleEntry& module : modules_) {
      if (module.name != kUnnamed) continue;
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
  std::vector<bool> exact_;              ///< ... whether they are no return addresses
  StepBack stepBack_;
};

// --- Other reports -------------------------------------------------------------------------------

void AppendSteppedBack(std::string& text, std::string_view line) {
  constexpr std::string_view kCounter = " PC: 0x";
  const std::size_t stackPointer = line.find(" (SP: 0x");
  const std::size_t at =
      line.find(kCounter, stackPointer == std::string_view::npos ? 0 : stackPointer);
  std::uint64_t address = 0;
  if (at != std::string_view::npos) {
    const char* digits = line.data() + at + kCounter.size();
    const auto [end, status] = std::from_chars(digits, line.data() + line.size(), address, 16);
    if (status == std::errc{} && address != 0) {
      text += line.substr(0, at + kCounter.size() - 2);
      AppendHexadecimal(text, address - 1);
      text.append(end, line.data() + line.size());
      return;
    }
  }
  text += line;
}

std::string WithReturnsSteppedBack(std::span<const ReportLine> lines) {
  std::string text;
  bool isInnermost = true;
  for (const ReportLine& line : lines) {
    if (line.kind == LineKind::Thread) isInnermost = true;
    if (line.kind != LineKind::Frame || isInnermost) {
      text += line.text;
    } else {
      AppendSteppedBack(text, line.text);
    }
    if (line.kind == LineKind::Frame) isInnermost = false;
  }
  return text;
}

}  // namespace

std::string Normalized(std::string_view report, StepBack stepBack) {
  if (IsOwnReport(report)) return OwnReport(CutReport(report), stepBack).Text();
  if (stepBack != StepBack::AllReports) return std::string(report);
  return WithReturnsSteppedBack(CutReport(report));
}

}  // namespace tarvo::toolkit
