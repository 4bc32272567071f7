#include "toolkit/report/report_lines.h"

#include <algorithm>
#include <charconv>

#include "tarvo/crash_report.h"

namespace tarvo::report {

namespace section = crash_report::section;

namespace {

/// The blocks whose lines have a meaning here.
enum class Block { Body, Skipped, Stacks, Thread, Registers, Variables, Modules, Module };

constexpr std::string_view Trimmed(std::string_view text, std::string_view blanks) noexcept {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

constexpr std::string_view FirstWord(std::string_view content) noexcept {
  return content.substr(0, content.find_first_of(" \t{="));
}

/// Whether `content` is `word`, perhaps with the block's brace behind it.
constexpr bool Opens(std::string_view content, std::string_view word) noexcept {
  if (!content.starts_with(word)) return false;
  const std::string_view rest = Trimmed(content.substr(word.size()), " \t");
  return rest.empty() || rest.starts_with('{');
}

/// Follows the report's blocks by the words that open them and the braces that end them. A brace
/// inside a text (a function's name, a variable's value) is none of the structure.
class Reader {
 public:
  LineKind Read(std::string_view content) noexcept {
    switch (block_) {
      case Block::Body:
        return ReadBody(content);
      case Block::Skipped:
        return Leave(content.starts_with('}'), Block::Body);
      case Block::Stacks:
        return ReadStacks(content);
      case Block::Thread:
        return ReadThread(content);
      case Block::Registers:  // its last line may carry the brace behind the registers
        return Leave(content.starts_with('}') || content.ends_with('}'), Block::Thread);
      case Block::Variables:
        if (content.starts_with('}')) return Leave(true, Block::Thread);
        return LineKind::Variable;
      case Block::Modules:
        return ReadModules(content);
      case Block::Module:
        return ReadModule(content);
    }
    return LineKind::Other;
  }

 private:
  LineKind Enter(Block inner) noexcept {
    block_ = inner;
    return LineKind::Other;
  }

  LineKind Leave(bool ends, Block outer) noexcept {
    if (ends) block_ = outer;
    return LineKind::Other;
  }

  LineKind ReadBody(std::string_view content) noexcept {
    if (Opens(content, section::kCallStacks)) block_ = Block::Stacks;
    if (Opens(content, section::kLoadedModules)) block_ = Block::Modules;
    if (Opens(content, section::kCriticalLog)) block_ = Block::Skipped;
    return LineKind::Other;
  }

  LineKind ReadStacks(std::string_view content) noexcept {
    if (!content.starts_with(section::kThreadPrefix)) return Leave(content == "}", Block::Body);
    block_ = Block::Thread;
    return LineKind::Thread;
  }

  LineKind ReadThread(std::string_view content) noexcept {
    if (Opens(content, section::kRegisters)) return Enter(Block::Registers);
    if (Opens(content, section::kVariables)) return Enter(Block::Variables);
    if (content.starts_with('}')) return Leave(true, Block::Stacks);
    return content.empty() || content == "{" ? LineKind::Other : LineKind::Frame;
  }

  LineKind ReadModules(std::string_view content) noexcept {
    if (FirstWord(content) != crash_report::key::kModuleName)
      return Leave(content == "}", Block::Body);
    block_ = Block::Module;
    return LineKind::Module;
  }

  LineKind ReadModule(std::string_view content) noexcept {
    if (content.starts_with('}')) return Leave(true, Block::Modules);
    return content == "{" ? LineKind::Other : LineKind::ModuleValue;
  }

  Block block_ = Block::Body;
};

}  // namespace

std::string_view Content(std::string_view line) noexcept { return Trimmed(line, " \t\r\n"); }

std::optional<KeyValue> SplitKeyValue(std::string_view line) noexcept {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  return KeyValue{Content(line.substr(0, equals)), Content(line.substr(equals + 1))};
}

std::optional<std::uint64_t> ParseAddress(std::string_view text) noexcept {
  if (text == crash_report::kNull) return 0;
  if (!text.starts_with(crash_report::kHexadecimal)) return std::nullopt;
  text.remove_prefix(crash_report::kHexadecimal.size());
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, number, 16);
  if (status != std::errc{} || stop != end) return std::nullopt;
  return number;
}

void AppendAddress(std::string& text, std::uint64_t address) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, address, 16).ptr;
  text += crash_report::kHexadecimal;
  text.append(digits, end);
}

std::string_view Magic(std::string_view text) noexcept {
  if (text.starts_with(crash_report::kByteOrderMark))
    text.remove_prefix(crash_report::kByteOrderMark.size());
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start);
  const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
  const auto magic = std::ranges::find_if(
      crash_report::kMagics, [&](std::string_view known) { return Opens(line, known); });
  return magic == crash_report::kMagics.end() ? std::string_view() : *magic;
}

std::vector<ReportLine> CutReport(std::string_view report) {
  std::vector<ReportLine> lines;
  Reader reader;
  while (!report.empty()) {
    const std::size_t end = report.find('\n');
    const std::string_view line =
        report.substr(0, end == std::string_view::npos ? report.size() : end + 1);
    report.remove_prefix(line.size());
    lines.push_back({reader.Read(Content(line)), line});
  }
  return lines;
}

}  // namespace tarvo::report
