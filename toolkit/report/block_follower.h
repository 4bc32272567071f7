#pragma once

#include <string_view>

#include "tarvo/crash_report.h"
#include "toolkit/report/report_lines.h"

namespace tarvo::report {

/// The blocks whose lines have a meaning here.
enum class Block { Body, Skipped, Stacks, Thread, Registers, Variables, Modules, Module };

[[nodiscard]] constexpr std::string_view Trimmed(std::string_view text,
                                                 std::string_view blanks) noexcept {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

[[nodiscard]] constexpr std::string_view FirstWord(std::string_view content) noexcept {
  return content.substr(0, content.find_first_of(" \t{="));
}

/// Whether `content` is `word`, perhaps with the block's brace behind it.
[[nodiscard]] constexpr bool Opens(std::string_view content, std::string_view word) noexcept {
  if (!content.starts_with(word)) return false;
  const std::string_view rest = Trimmed(content.substr(word.size()), " \t");
  return rest.empty() || rest.starts_with('{');
}

/// Follows the report's blocks by the words that open them and the braces that end them. A brace
/// inside a text (a function's name, a variable's value) is none of the structure.
class BlockFollower {
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
      case Block::Registers:
        return ReadRegisters(content);
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

  [[nodiscard]] Block Inside() const noexcept { return block_; }

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
    if (Opens(content, crash_report::section::kCallStacks)) block_ = Block::Stacks;
    if (Opens(content, crash_report::section::kLoadedModules)) block_ = Block::Modules;
    if (Opens(content, crash_report::section::kCriticalLog)) block_ = Block::Skipped;
    return LineKind::Other;
  }

  LineKind ReadStacks(std::string_view content) noexcept {
    if (!content.starts_with(crash_report::section::kThreadPrefix))
      return Leave(content == "}", Block::Body);
    block_ = Block::Thread;
    return LineKind::Thread;
  }

  LineKind ReadThread(std::string_view content) noexcept {
    if (Opens(content, crash_report::section::kRegisters)) return Enter(Block::Registers);
    if (Opens(content, crash_report::section::kVariables)) return Enter(Block::Variables);
    if (content.starts_with('}')) return Leave(true, Block::Stacks);
    return content.empty() || content == "{" ? LineKind::Other : LineKind::Frame;
  }

  /// The last line may carry the brace behind the registers.
  LineKind ReadRegisters(std::string_view content) noexcept {
    if (content.ends_with('}')) block_ = Block::Thread;
    return content.empty() || content == "{" || content.starts_with('}') ? LineKind::Other
                                                                         : LineKind::Register;
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

/// The line with its end, off the front of `text`.
[[nodiscard]] constexpr std::string_view TakeLine(std::string_view& text) noexcept {
  const std::size_t end = text.find('\n');
  const std::string_view line =
      text.substr(0, end == std::string_view::npos ? text.size() : end + 1);
  text.remove_prefix(line.size());
  return line;
}

}  // namespace tarvo::report
