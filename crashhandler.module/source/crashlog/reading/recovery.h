#pragma once

#include <cstdint>
#include <string_view>

#include "crashlog/reading/tokenizer.h"
#include "tarvo/error.h"
#include "tarvo/result.h"

/// How a reading goes on behind damage. A block that cannot be read further ends there, and the
/// lines behind are passed over up to the next one that starts something known: for the block
/// itself (another frame of a call stack, the "}" of a list) or for one around it (another thread,
/// another section). The blocks in between end too. Each place is noted.
///
/// All of it does nothing where a reading ends with the first error.
namespace tarvo::crashhandler {

enum class BlockKind : std::uint8_t {
  Body,       ///< of sections
  Threads,    ///< of threads
  Thread,     ///< of frames, registers and variables
  Registers,  ///< of lines of registers
  Entries,    ///< of lines "KEY = VALUE"
  Modules,    ///< of modules
  Scenes,     ///< of documents
  Log,        ///< of lines
};

/// Notes `error`, which ended the entry that begins with `start`, and moves on. False where the
/// reading ends.
[[nodiscard]] bool Recover(Tokenizer& tokens, BlockKind block, std::string_view start,
                           const Error& error);

/// Whether what stands at the place that Recover has moved to, if it did, is an entry of `block`.
[[nodiscard]] bool GoesOnIn(Tokenizer& tokens, BlockKind block);

/// The end of the text instead of a "}": accepted, and noted, once. That of the report itself is
/// missed only in those of this project's own capture, which writes it always.
Result<void> EndWithoutBrace(Tokenizer& tokens, BlockKind block);

/// What follows the "}" of the report, where more sections do: moves on to them. False where there
/// are none.
[[nodiscard]] bool GoesOnBehindEnd(Tokenizer& tokens);

/// An error where the line that was read is the last one and lacks its end: what it ends with may
/// be half a value.
Result<void> CheckLineEnd(const Tokenizer& tokens);

// --- Room ----------------------------------------------------------------------------------------

/// A tree takes at most so many times the room of its report, and what is free. Reports that a
/// crash handler writes take three or four times theirs; lines of two bytes, which are accepted
/// too, twenty.
inline constexpr std::size_t kMaximumTreeMultiple = 24;
inline constexpr std::size_t kFreeTreeBytes = 1 << 20;

/// What the entries of arrays take, in bytes. Those of dictionaries need no count: their keys
/// differ, so their lines are long enough.
namespace room {
inline constexpr std::size_t kText = 40;         ///< or another entry like the one before
inline constexpr std::size_t kDictionary = 200;  ///< a frame, a document
inline constexpr std::size_t kModule = 280;
inline constexpr std::size_t kThread = 400;
}  // namespace room

/// Takes the room of one more entry. When there is none left an error that names the limit, with
/// which the reading ends, or the part of it that goes on behind damage.
Result<void> TakeRoom(Tokenizer& tokens, std::size_t bytes);

}  // namespace tarvo::crashhandler
