#include "crashlog/reading/recovery.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "crashlog/base/source.h"
#include "crashlog/base/text.h"
#include "crashlog/reading/messages.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {

namespace section = crash_report::section;

namespace {

constexpr bool IsOfWord(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::string_view LeadingWord(std::string_view line) noexcept {
  return {line.begin(), std::ranges::find_if_not(line, IsOfWord)};
}

bool IsSectionLine(std::string_view word, std::string_view rest) noexcept {
  constexpr std::array kWords = {section::kCallStacks,    section::kException,
                                 section::kComputerInfo,  section::kApplicationInfo,
                                 section::kLoadedModules, section::kCriticalLog};
  if (word == section::kOpened) return rest.starts_with(section::kScenes);
  const bool opens = rest.empty() || rest.starts_with('{');
  return opens && std::ranges::find(kWords, word) != kWords.end();
}

bool IsThreadLine(std::string_view word, std::string_view rest) noexcept {
  if (!word.starts_with(section::kThreadPrefix)) return false;
  word.remove_prefix(section::kThreadPrefix.size());
  const bool isNumber =
      !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
  return isNumber && (rest.empty() || rest.starts_with('{'));
}

bool IsFrameLine(std::string_view line) noexcept {
  const std::size_t counter = line.find(crash_report::frame::kProgramCounterDigits);
  return counter != std::string_view::npos &&
         line.find(crash_report::frame::kStackPointer) < counter &&
         line.find(')', counter) != std::string_view::npos;
}

/// What a line starts; nothing where that cannot be said.
Opener OpenerOf(std::string_view line) noexcept {
  line = Trim(line);
  if (line.starts_with('}')) return Opener::End;
  const std::string_view word = LeadingWord(line);
  const std::string_view rest = SkipBlanks(line.substr(word.size()));
  if (IsSectionLine(word, rest)) return Opener::Section;
  if (IsThreadLine(word, rest)) return Opener::Thread;
  if (word == crash_report::key::kModuleName && rest.starts_with('=')) return Opener::Module;
  const bool isPart = word == section::kRegisters || word == section::kVariables;
  if (isPart && (rest.empty() || rest.starts_with('{'))) return Opener::ThreadPart;
  if (IsFrameLine(line)) return Opener::Frame;
  return !word.empty() && rest.starts_with('=') ? Opener::Entry : Opener::None;
}

/// Whether `block` has entries that start so, or ends so.
bool Takes(BlockKind block, Opener opener) noexcept {
  switch (block) {
    case BlockKind::Body:
      return opener == Opener::Section || opener == Opener::Thread || opener == Opener::Module;
    case BlockKind::Threads:
      return opener == Opener::Thread;
    case BlockKind::Thread:
      return opener == Opener::Frame || opener == Opener::ThreadPart || opener == Opener::End;
    case BlockKind::Modules:
      return opener == Opener::Module;
    case BlockKind::Entries:
      return opener == Opener::Entry || opener == Opener::End;
    default:
      return opener == Opener::End;
  }
}

/// Whether what starts so belongs to a block around `block`, or to one that has ended early.
bool IsForOuter(BlockKind block, Opener opener) noexcept {
  switch (opener) {
    case Opener::Section:
      return true;
    case Opener::Thread:
      return block != BlockKind::Threads;
    case Opener::Module:
      return block != BlockKind::Modules;
    case Opener::ThreadPart:
      return block == BlockKind::Registers || block == BlockKind::Entries;
    default:
      return false;
  }
}

/// Moves to the next line that starts something for `block` or one around it.
void PassOver(Tokenizer& tokens, BlockKind block) {
  for (;;) {
    const std::optional<std::string_view> line = tokens.PeekLine();
    if (!line) break;
    const Opener opener = OpenerOf(*line);
    if (Takes(block, opener) || IsForOuter(block, opener))
      return static_cast<void>(tokens.State().pending = opener);
    tokens.SkipLine();
  }
  tokens.State().pending = Opener::None;
  tokens.State().isEndNoted = true;
}

void Note(Tokenizer& tokens, const String& expected) {
  tokens.State().damage.Note(tokens.Line(), expected);
}

bool IsFull(const Tokenizer& tokens) noexcept {
  return tokens.Room() > tokens.Size() * kMaximumTreeMultiple + kFreeTreeBytes;
}

}  // namespace

bool Recover(Tokenizer& tokens, BlockKind block, std::string_view start, const Error& error) {
  if (!tokens.Salvages()) return false;
  // The error of "Opened" without "Scenes" has no text.
  const bool isNamed = !error.Message().IsEmpty();
  Note(tokens,
       isNamed ? error.Message() : Format("Expected @ in line @", section::kScenes, tokens.Line()));
  if (IsFull(tokens)) {
    tokens.SkipToEnd();
    tokens.State().isEndNoted = true;
    return true;
  }
  // The token that was not expected may itself start what comes next, on a line of its own.
  tokens.ReturnToLineBehind(start);
  PassOver(tokens, block);
  return true;
}

bool GoesOnIn(Tokenizer& tokens, BlockKind block) {
  for (;;) {
    Opener& pending = tokens.State().pending;
    if (pending == Opener::None || Takes(block, pending)) {
      pending = Opener::None;
      return true;
    }
    if (block != BlockKind::Body) return false;
    tokens.SkipLine();
    PassOver(tokens, block);
  }
}

Result<void> EndWithoutBrace(Tokenizer& tokens, BlockKind block) {
  const bool isMissed = block != BlockKind::Body || tokens.State().isOwn;
  if (tokens.Salvages() && isMissed && !std::exchange(tokens.State().isEndNoted, true)) {
    tokens.State().lacksOnlyItsEnd = tokens.State().damage.IsEmpty();
    tokens.State().isEndMissed = true;
    Note(tokens, Format("Expected @ in line @, found @", KindName(TokenKind::CloseBrace),
                        tokens.Line(), KindName(TokenKind::EndOfFile)));
  }
  return {};
}

bool GoesOnBehindEnd(Tokenizer& tokens) {
  if (!tokens.Salvages() || tokens.Kind() != TokenKind::CloseBrace) return false;
  while (const std::optional<std::string_view> next = tokens.PeekLine()) {
    // Another report in the same file.
    const std::string_view word = LeadingWord(Trim(*next));
    if (std::ranges::find(crash_report::kMagics, word) != crash_report::kMagics.end()) return false;
    if (Takes(BlockKind::Body, OpenerOf(*next))) {
      const std::size_t line = tokens.Line();
      tokens.State().damage.Note(
          line, Format("Expected the report's end behind line @, found more of it", line));
      return true;
    }
    tokens.SkipLine();
  }
  return false;
}

Result<void> CheckLineEnd(const Tokenizer& tokens) {
  if (!tokens.Salvages() || !tokens.IsLineCutShort()) return {};
  return ErrorInLine("Expected the end of line @, found end of file", tokens);
}

Result<void> TakeRoom(Tokenizer& tokens, std::size_t bytes) {
  tokens.CountRoom(bytes);
  if (!IsFull(tokens)) return {};
  return Error::Plain(kSource.Here(),
                      Format("The entries up to line @ take more than @ times the report's size "
                             "(kMaximumTreeMultiple)",
                             tokens.Line(), kMaximumTreeMultiple));
}

}  // namespace tarvo::crashhandler
