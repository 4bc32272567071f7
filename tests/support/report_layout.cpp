#include "support/report_layout.h"

#include <algorithm>
#include <array>
#include <regex>
#include <set>
#include <stdexcept>

namespace {

constexpr std::array kRegisterNames = {
    "rax",    "rbx", "rcx", "rdx",     "rdi",     "orig_rax", "rsi",   "rbp",       "rsp",
    "r8",     "r9",  "r10", "r11",     "r12",     "r13",      "r14",   "r15",       "rip",
    "eflags", "cs",  "ss",  "fs_base", "gs_base", "ds",       "es",    "fs",        "gs",
    "cwd",    "swd", "ftw", "fop",     "rip",     "rdp",      "mxcsr", "mxcr_mask", "st0",
    "st1",    "st2", "st3", "st4",     "st5",     "st6",      "st7"};
constexpr std::string_view kRegistersEnd = "\t\t\t}";

class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}

  [[noreturn]] void Fail(std::string_view expected) const {
    throw std::runtime_error("line " + std::to_string(number_ + 1) + ": expected " +
                             std::string(expected) + ", found \"" +
                             std::string(Peek().substr(0, 120)) + "\"");
  }
  [[nodiscard]] std::string_view Peek() const { return rest_.substr(0, rest_.find('\n')); }
  std::string Take() {
    if (rest_.find('\n') == std::string_view::npos) Fail("a whole line");
    std::string line(Peek());
    rest_.remove_prefix(line.size() + 1);
    ++number_;
    return line;
  }
  void Expect(std::string_view line) {
    if (Peek() != line) Fail("\"" + std::string(line) + "\"");
    Take();
  }
  bool TakeIf(std::string_view line) {
    const bool there = Peek() == line;
    if (there) Take();
    return there;
  }
  std::smatch Match(const char* pattern) {
    const std::string line(Peek());
    std::smatch match;
    current_ = line;
    if (!std::regex_match(current_, match, std::regex(pattern))) Fail(pattern);
    Take();
    return match;
  }
  void ExpectEnd() const {
    if (!rest_.empty()) Fail("the end");
  }

 private:
  std::string_view rest_;
  std::size_t number_ = 0;
  std::string current_;
};

std::uint64_t Hexadecimal(const std::string& digits) { return std::stoull(digits, nullptr, 16); }

/// A "%p" of an address: "(nil)" for 0.
std::uint64_t Pointer(const std::string& text) { return text == "(nil)" ? 0 : Hexadecimal(text); }

ReportFrame ReadFrame(Lines& lines) {
  const std::smatch match =
      lines.Match(R"(\t\t\t(.+):\t\(nil\) \(SP: (0x[0-9a-f]+|\(nil\)), PC: \(nil\)\))");
  return {match[1], Pointer(match[2])};
}

/// Whole lines of four, then a line of three that the closing brace continues.
void ReadRegisters(Lines& lines, ReportThread& thread) {
  lines.Expect("\t\t\tRegisters");
  lines.Expect("\t\t\t{");
  while (lines.Peek().starts_with("\t\t\t\t")) {
    std::string line = lines.Take();
    const bool last = line.ends_with(kRegistersEnd);
    if (last) line.resize(line.size() - kRegistersEnd.size());
    line.erase(0, 4);
    static const std::regex pair("([a-z_0-9]+): 0x([0-9a-f]{16})( |$)");
    std::string rest = line;
    for (std::smatch match; std::regex_search(rest, match, pair) && match.position() == 0;) {
      thread.registers.emplace_back(match[1], match[2]);
      rest = match.suffix();
    }
    if (!rest.empty()) lines.Fail("register pairs before \"" + rest + "\"");
    if (last) return;
  }
  lines.TakeIf("");
  lines.Expect(kRegistersEnd);
}

void ReadVariables(Lines& lines, ReportThread& thread) {
  lines.Expect("\t\t\tVariables");
  lines.Expect("\t\t\t{");
  while (lines.Peek().starts_with("\t\t\t\t")) {
    const std::smatch match = lines.Match("\t\t\t\t([^ ]+) = (.*)");
    thread.variables.emplace_back(match[1], match[2]);
  }
  if (thread.variables.size() > 1) lines.Expect("");
  lines.Expect("\t\t\t}");
}

ReportThread ReadThread(Lines& lines) {
  ReportThread thread;
  thread.id = std::stoull(lines.Match("\t\tCall_Stack_Thread_([0-9]+)")[1]);
  lines.Expect("\t\t{");
  while (lines.Peek() != "\t\t\tRegisters") thread.frames.push_back(ReadFrame(lines));
  ReadRegisters(lines, thread);
  ReadVariables(lines, thread);
  lines.Expect("\t\t}");
  return thread;
}

ReportModule ReadModule(Lines& lines) {
  ReportModule module;
  module.name = lines.Match("\t\tModuleName = (.+)")[1];
  lines.Expect("\t\t{");
  module.path = lines.Match("\t\t\tExecutable = (.*)")[1];
  module.base = Pointer(lines.Match(R"(\t\t\tBaseAddress = (0x[0-9a-f]+|\(nil\)))")[1]);
  module.size = std::stoull(lines.Match("\t\t\tBaseSize = ([0-9]+)")[1]);
  if (lines.Peek().starts_with("\t\t\tBuild")) module.build = lines.Match("\t\t\tBuild = (.+)")[1];
  lines.Expect("\t\t}");
  return module;
}

std::map<std::string, std::string> ReadException(Lines& lines) {
  std::map<std::string, std::string> exception;
  lines.Expect("\tException");
  lines.Expect("\t{");
  for (const char* pattern :
       {"\t\t(ExceptionNumber) = (0x[0-9A-F]{8})", "\t\t(ExceptionText) = \"(.+)\"",
        R"(\t\t(Address) = (0x[0-9a-f]+|\(nil\)))", "\t\t(Thread) = (0x[0-9a-f]+)"}) {
    const std::smatch match = lines.Match(pattern);
    exception[match[1]] = match[2];
  }
  lines.Expect("\t}");
  return exception;
}

/// The module whose load address is nearest below; addresses are never below their module's.
const ReportModule* NearestBelow(const Report& report, std::uint64_t address) {
  const ReportModule* nearest = nullptr;
  for (const ReportModule& module : report.modules)
    if (module.base <= address && (nearest == nullptr || module.base > nearest->base))
      nearest = &module;
  return nearest;
}

void CheckFrame(const Report& report, const ReportFrame& frame, std::vector<std::string>& faults) {
  const std::size_t bracket = frame.text.rfind('[');
  const std::size_t digits = bracket == std::string::npos ? bracket : bracket + 1;
  if (digits == std::string::npos || !frame.text.ends_with("]") ||
      Pointer(frame.text.substr(digits, frame.text.size() - digits - 1)) != frame.address)
    faults.push_back("frame \"" + frame.text + "\" does not end in its own address");
  if (bracket == 0) return;
  const ReportModule* module = NearestBelow(report, frame.address);
  // The program's own entry has no path; its frames carry the program's name.
  const bool program = module == report.modules.data();
  if (module == nullptr || (!program && !module->path.ends_with(frame.Module())))
    faults.push_back("frame \"" + frame.text + "\" lies in no module of that name");
}

}  // namespace

bool ReportThread::Shows(std::string_view function) const {
  return std::ranges::any_of(frames, [&](const ReportFrame& frame) {
    return frame.text.find("(" + std::string(function)) != std::string::npos;
  });
}

const ReportThread* Report::Named(std::string_view name) const {
  const auto found = std::ranges::find(threads, name, &ReportThread::Name);
  return found == threads.end() ? nullptr : &*found;
}

Report ReadReport(std::string_view text) {
  Lines lines(text);
  Report report;
  lines.Expect("TARVO_Crash_Report");
  lines.Expect("{");
  lines.Expect("\tCall_Stacks");
  lines.Expect("\t{");
  while (!lines.TakeIf("\t}")) report.threads.push_back(ReadThread(lines));
  lines.Expect("\tLoaded_Modules");
  lines.Expect("\t{");
  while (!lines.TakeIf("\t}")) report.modules.push_back(ReadModule(lines));
  report.exception = ReadException(lines);
  if (lines.TakeIf("\tCritical_Log")) {
    lines.Expect("\t{");
    while (!lines.TakeIf("\t}")) report.log.push_back(lines.Match("\t\t\\| (.*)")[1]);
  }
  lines.Expect("}");
  lines.ExpectEnd();
  return report;
}

std::vector<std::string> FindFaults(const Report& report) {
  std::vector<std::string> faults;
  std::set<std::uint64_t> ids;
  for (const ReportThread& thread : report.threads) {
    const std::string where = "thread " + std::to_string(thread.id);
    if (!ids.insert(thread.id).second) faults.push_back(where + " is listed twice");
    if (thread.Name().empty()) faults.push_back(where + " has no name");
    if (!std::ranges::equal(
            thread.registers, kRegisterNames, {},
            [](const auto& pair) { return std::string_view(pair.first); },
            [](const char* name) { return std::string_view(name); }))
      faults.push_back(where + " does not have the 43 registers in their order");
    for (const ReportFrame& frame : thread.frames) CheckFrame(report, frame, faults);
  }
  if (report.modules.empty() || report.modules[0].name != "unknown" ||
      !report.modules[0].path.empty())
    faults.push_back("the program is not the first module");
  return faults;
}
