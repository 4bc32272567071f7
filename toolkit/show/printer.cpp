#include "toolkit/show/printer.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/document/crash.h"
#include "toolkit/show/compile_time.h"
#include "toolkit/show/frame_line.h"
#include "toolkit/show/frame_table.h"
#include "toolkit/show/source_excerpt.h"
#include "toolkit/show/style.h"

namespace tarvo::toolkit {

namespace key = crash_report::key;

namespace {

constexpr std::string_view kIndent = "  ";

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

/// A text of the report without the quotes that it may stand in, safe to print.
std::string Plain(std::string_view text) {
  text = Trimmed(text);
  if (text.size() >= 2 && text.starts_with('"') && text.ends_with('"'))
    text = text.substr(1, text.size() - 2);
  return SafeText(text == crash_report::kNull ? "0x0" : text);
}

void AppendPart(std::string& text, std::string_view label, const std::string& part) {
  if (part.empty()) return;
  text += text.empty() ? "" : ", ";
  text += label;
  text += part;
}

std::string ApplicationText(const CrashDocument& document) {
  const auto executable = std::ranges::find(document.modules, true, &DocumentModule::isExecutable);
  const DocumentModule module =
      executable == document.modules.end() ? DocumentModule{} : *executable;
  std::string text = SafeText(module.name);
  AppendPart(text, "version ", Plain(FindText(document.application, key::kVersion)));
  AppendPart(text, "build ", SafeText(module.build));
  return text;
}

std::string SystemText(const CrashDocument& document) {
  // What a report without an entry for the system is taken for.
  const std::string_view system = FindText(document.computer, key::kOsType);
  std::string text = system == crash_report::kLinuxMagic ? "Linux" : Plain(system);
  AppendPart(text, "", Plain(FindText(document.application, key::kArchitecture)));
  return text;
}

/// `signal` is what the crashed thread's variables say, which is a name where the exception's text
/// is none.
std::string ExceptionText(const CrashDocument& document, std::string_view signal) {
  std::string name = Plain(FindText(document.exception, key::kExceptionText));
  if (!signal.empty() && name.find(signal) == std::string::npos) name = Plain(signal);
  const std::string number = Plain(FindText(document.exception, key::kExceptionNumber));
  std::string text = name.empty() || number.empty() ? name + number : name + " (" + number + ')';
  constexpr std::array kShownOtherwise = {key::kExceptionText, key::kExceptionNumber,
                                          key::kExceptionThread};
  for (const auto& [key, value] : document.exception)
    if (std::ranges::find(kShownOtherwise, key) == kShownOtherwise.end())
      AppendPart(text, Plain(key) + ' ', Plain(value));
  return text;
}

std::string ThreadText(const DocumentThread& thread) {
  return "Thread " + (thread.number ? std::to_string(*thread.number) : "without a number");
}

/// Prints one document.
class Printer {
 public:
  Printer(const CrashDocument& document, const ShowOptions& options, std::FILE* out)
      : document_(document),
        options_(options),
        paint_(options.isColoured),
        crash_(FindCrash(document)),
        out_(out) {}

  void Print() {
    if (!options_.thread) PrintHeader();
    if (crash_) PrintThread(crash_->thread);
    if (options_.showsCrashOnly && crash_) return Flush();
    for (std::size_t i = 0; i < document_.threads.size() && std::ferror(out_) == 0; ++i)
      if (!crash_ || i != crash_->thread) PrintThread(i);
    if (options_.showsAll && !options_.thread) PrintSections();
    Flush();
  }

 private:
  void Flush() {
    std::fwrite(text_.data(), 1, text_.size(), out_);
    text_.clear();
  }

  /// The rest of a line that `used` columns of are taken.
  std::string Fitted(const std::string& text, std::size_t used) const {
    const std::size_t left = options_.width - std::min(options_.width, used);
    return !options_.Cuts() ? text : Shortened(text, std::max<std::size_t>(left, 1));
  }

  void PrintPair(const std::string& key, std::size_t keyWidth, const std::string& value) {
    text_ += kIndent;
    text_ += paint_(Style::Quiet, key);
    if (!value.empty()) {
      const std::size_t width = std::max(keyWidth, TextWidth(key));
      text_ += std::string(width - TextWidth(key) + 2, ' ');
      text_ += Fitted(value, kIndent.size() + width + 2);
    }
    text_ += '\n';
  }

  void PrintPairs(const TextPairs& pairs) {
    constexpr std::size_t kWidestKey = 24;
    std::size_t width = 0;
    for (const auto& pair : pairs)
      width = std::max(width, std::min(TextWidth(Plain(pair.first)), kWidestKey));
    for (const auto& [key, value] : pairs) PrintPair(Plain(key), width, Plain(value));
  }

  /// What the capture says of itself: why there are no frames or registers, in words.
  void PrintMissing(const DocumentThread& thread) {
    for (const auto& [what, name] :
         {std::pair("Frames are missing: ", crash_report::variable::kFramesMissing),
          std::pair("Registers are missing: ", crash_report::variable::kRegistersMissing)}) {
      const std::string reason = Plain(FindText(thread.variables, name));
      if (reason.empty()) continue;
      text_ += kIndent;
      text_ += paint_(Style::Quiet, Fitted(what + reason + '.', kIndent.size())) + '\n';
    }
  }

  /// The name stands in the title already, what is missing in a sentence, guesses at their frames;
  /// the registers at the fault and the modules' build ids are shown when all are.
  void PrintVariables(TextPairs variables) {
    constexpr std::array kShownElsewhere = {
        crash_report::variable::kThreadName, crash_report::variable::kFramesMissing,
        crash_report::variable::kRegistersMissing, crash_report::variable::kGuessedFrames};
    std::erase_if(variables, [&](const TextPairs::value_type& variable) {
      const bool isMinor =
          variable.second.empty() ||
          variable.first.starts_with(crash_report::variable::kFaultRegisterPrefix) ||
          variable.first.starts_with(crash_report::variable::kBuildIdPrefix);
      return std::ranges::find(kShownElsewhere, variable.first) != kShownElsewhere.end() ||
             (isMinor && !options_.showsAll);
    });
    PrintPairs(variables);
  }

  /// A line in front of a section, and an empty one in front of that.
  void PrintTitle(const std::string& title) {
    if (isStarted_) text_ += '\n';
    isStarted_ = true;
    text_ += title + '\n';
  }

  void PrintHeader() {
    PrintTitle(paint_(Style::Title, "Crash"));
    PrintFact("Application", ApplicationText(document_));
    PrintFact("System", SystemText(document_));
    PrintFact("Exception", ExceptionText(document_, Signal()));
    const std::string_view error =
        FindText(document_.outcome, crash_report::property::kOutcomeError);
    PrintFact("Report", error.empty() ? ""
                                      : Plain(FindText(document_.outcome,
                                                       crash_report::property::kOutcomeReport)));
    PrintFact("Unreadable", Plain(error));
    for (const DocumentDamage& damage : document_.damage)
      PrintFact(damage.isCut ? "Cut off" : "Damaged",
                (damage.line == 0 ? "" : "line " + std::to_string(damage.line) + ": ") +
                    SafeText(damage.expected));
  }

  [[nodiscard]] std::string_view Signal() const {
    if (!crash_) return {};
    return FindText(document_.threads[crash_->thread].variables,
                    crash_report::variable::kFaultSignal);
  }

  void PrintFact(const char* name, const std::string& fact) {
    constexpr std::size_t kWidestName = 11;
    if (!fact.empty()) PrintPair(name, kWidestName, fact);
  }

  void PrintThread(std::size_t index) {
    const DocumentThread& thread = document_.threads[index];
    if (options_.thread && thread.number != options_.thread) return;
    const bool isCrashed = crash_ && crash_->thread == index;
    constexpr std::size_t kMarkWidth = 10;
    const std::string number = ThreadText(thread);
    std::string title = paint_(Style::Title, number);
    const std::string name = Plain(FindText(thread.variables, crash_report::variable::kThreadName));
    if (!name.empty())
      title += "  " + paint_(Style::Title, Fitted(name, number.size() + kMarkWidth));
    if (isCrashed) title += "  " + paint_(Style::Alarm, "crashed");
    PrintTitle(title);
    PrintVariables(thread.variables);
    PrintMissing(thread);
    PrintFrames(thread, isCrashed);
    if (options_.showsAll) PrintRegisters(thread);
    Flush();
  }

  void PrintFrames(const DocumentThread& thread, bool isCrashed) {
    constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();
    const bool isWhole = isCrashed || options_.showsAll || options_.thread;
    const std::size_t crashed = isCrashed ? crash_->frame : kAll;
    const std::size_t interrupted = isCrashed ? crash_->interrupted : 0;
    auto lines = MakeFrameLines(thread.frames, crashed, !options_.showsAll,
                                isWhole ? kAll : kLinesOfOtherThreads);
    MarkGuesses(thread, lines);
    // In front of the frame that was interrupted are those of the crash handler.
    const auto isHandlers = [&](const FrameLine& line) { return line.number < interrupted; };
    const std::size_t folded = options_.showsAll ? 0 : interrupted;
    if (folded != 0) std::erase_if(lines, isHandlers);
    const FrameTable table(lines, options_.width, options_.Cuts());
    if (folded != 0)
      text_ += std::string(table.Indent(), ' ') +
               paint_(Style::Quiet, std::to_string(folded) + (folded == 1 ? " frame" : " frames") +
                                        " of the crash handler, --all shows them") +
               '\n';
    std::size_t shown = folded;
    for (const FrameLine& line : lines) {
      const bool isMarked = line.number == crashed && !line.isCaller;
      const bool isQuiet = isHandlers(line);
      text_ += table.Line(line, paint_, isMarked, isQuiet);
      if (isMarked || (isCrashed && options_.showsAll))
        PrintExcerpt(thread.frames[line.number], table.Indent());
      shown += line.count;
    }
    if (shown < thread.frames.size())
      text_ += std::string(table.Indent(), ' ') +
               paint_(Style::Quiet, "… " + std::to_string(thread.frames.size() - shown) +
                                        " more frames, --all shows them") +
               '\n';
    if (thread.frames.empty())
      text_ += std::string(kIndent) + paint_(Style::Quiet, "no frames") + '\n';
  }

  /// Frames that were found without call-frame information may never have been.
  static void MarkGuesses(const DocumentThread& thread, std::vector<FrameLine>& lines) {
    const std::string guesses =
        ' ' + std::string(FindText(thread.variables, crash_report::variable::kGuessedFrames)) + ' ';
    for (FrameLine& line : lines)
      if (guesses.find(' ' + std::to_string(line.number) + ' ') != std::string::npos)
        line.function.insert(0, "(guess) ");
  }

  /// Why the file of the last excerpt is not, or may not be, the one that was compiled; else empty.
  /// Its age counts where there is no checksum.
  [[nodiscard]] std::string SourceDoubt(const DocumentFrame& frame, std::optional<bool> isEqual) {
    if (isEqual) return *isEqual ? "" : " is not the file that was compiled";
    const auto bound = FindCompileBound(document_, frame);
    if (bound && sources_.Time() <= bound->time) return {};
    return bound ? " was changed after " + std::string(bound->event)
                 : " may be another than was compiled";
  }

  /// A line that says why there is no excerpt.
  void PrintDoubt(const DocumentFrame& frame, const std::string& doubt, std::size_t indent) {
    const std::string name = SafeText(frame.sourceFile.substr(frame.sourceFile.rfind('/') + 1));
    const std::string text = name + doubt + ": not shown (--any-source shows it)";
    text_ += std::string(indent, ' ') + paint_(Style::Quiet, Fitted(text, indent)) + '\n';
  }

  void PrintExcerpt(const DocumentFrame& frame, std::size_t indent) {
    const std::pair place(frame.sourceFile, frame.sourceLine);
    if (!options_.showsSource || place == excerpt_) return;
    const auto lines = sources_.Excerpt(frame.sourceFile, frame.sourceLine);
    const auto isEqual = options_.takesAnySource
                             ? std::optional(true)
                             : sources_.Matches(frame.sourceFile, frame.sourceFileChecksum);
    // Of a file that is another one it is said also where it ends before the line.
    if (lines.empty() && isEqual.value_or(true)) return;
    excerpt_ = place;
    if (const std::string doubt = SourceDoubt(frame, isEqual); !doubt.empty())
      return PrintDoubt(frame, doubt, indent);
    const std::size_t width = std::to_string(lines.back().number).size();
    for (const SourceLine& line : lines) {
      const bool isMarked = line.number == frame.sourceLine;
      const std::string number = std::to_string(line.number);
      std::string text = isMarked ? "> " : "  ";
      text += std::string(width - number.size(), ' ') + number + " │";
      if (!line.text.empty()) text += ' ' + line.text;
      text_ += std::string(indent, ' ') +
               paint_(isMarked ? Style::Title : Style::Quiet, Fitted(text, indent)) + '\n';
    }
  }

  /// As many of equal width in a line as fit.
  void PrintRegisters(const DocumentThread& thread) {
    std::vector<std::string> cells;
    std::size_t widest = 0;
    for (const auto& [name, value] : thread.registers) {
      cells.push_back(Plain(name) + ' ' + Plain(value));
      widest = std::max(widest, TextWidth(cells.back()));
    }
    const std::size_t perLine = std::max<std::size_t>(options_.width / (widest + 2), 1);
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const bool endsLine = i % perLine == perLine - 1 || i + 1 == cells.size();
      text_ += kIndent;
      text_ += paint_(Style::Quiet, cells[i]);
      text_ += endsLine ? "\n" : std::string(widest - TextWidth(cells[i]), ' ');
    }
  }

  void PrintSections() {
    PrintPairSection("Application", document_.application);
    PrintPairSection("Computer", document_.computer);
    PrintPairSection("Exception", document_.exception);
    if (!document_.modules.empty()) PrintTitle(paint_(Style::Title, "Modules"));
    for (const DocumentModule& module : document_.modules) {
      text_ += Format("  0x@{x}-0x@{x}  @", module.baseAddress, module.baseAddress + module.size,
                      paint_(Style::Module, SafeText(module.name)))
                   .View();
      if (!module.build.empty()) text_ += "  " + SafeText(module.build);
      text_ += '\n';
    }
    PrintPairSection("Scenes", document_.scenes);
    if (!document_.criticalLog.empty()) PrintTitle(paint_(Style::Title, "Critical log"));
    for (const std::string_view line : document_.criticalLog)
      text_ += std::string(kIndent) + SafeText(line) + '\n';
  }

  void PrintPairSection(const char* title, const TextPairs& pairs) {
    if (pairs.empty()) return;
    PrintTitle(paint_(Style::Title, title));
    PrintPairs(pairs);
  }

  const CrashDocument& document_;
  const ShowOptions& options_;
  const Painter paint_;
  const std::optional<report::CrashSite> crash_;
  std::FILE* out_;
  SourceReader sources_;
  std::string text_;  ///< not yet written
  /// The last one's file and line: recursion does not repeat it.
  std::pair<std::string_view, std::uint64_t> excerpt_{};
  bool isStarted_ = false;
};

}  // namespace

void PrintCrashDocument(const CrashDocument& document, const ShowOptions& options, std::FILE* out) {
  Printer(document, options, out).Print();
}

}  // namespace tarvo::toolkit
