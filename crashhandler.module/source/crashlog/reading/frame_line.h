#pragma once

#include <string_view>

#include "crashlog/reading/tokenizer.h"
#include "tarvo/data_dictionary.h"

namespace tarvo::crashhandler {

/// Reads the lines of a call stack into frames:
///
///     module:\tfunction (SP: 0x7ffc60, PC: 0x401136)
///
/// The module is everything before the first ":", the function what follows it up to " (SP: 0x" or,
/// failing that, " (SP: (nil)," (or to the line's end), the address the hexadecimal number after "
/// PC: 0x". What a line does not have, or what is no number of 64 bits, the frame does not have
/// either; no line is an error.
///
/// Lines that start otherwise than with a module's name:
///
///     :\tfunction …              no module
///     [0x7f0011]:\tfunction …    no module; the capture's form for code outside of all modules
///     0x401136: function …       no module
///     0x401136 function …        no module
///     12 module: function …      a module, when a blank follows its ":"
///     7z.dll:\tfunction …        a module: the number is no word of its own
///
/// A module's name without ":" before " (SP: 0x" ends at a blank that a number follows.
class FrameReader {
 public:
  /// Reads the line that the tokenizer's current token starts. Equal lines one after the other, as
  /// an endless recursion leaves them, share one frame's memory.
  const DataDictionary& Read(Tokenizer& tokens);

  /// Whether the line that was read has an address with the ")" behind it, so that it is whole even
  /// where the report ends with it.
  [[nodiscard]] bool IsWhole() const noexcept;
  /// Whether the line was equal to the one before.
  [[nodiscard]] bool IsRepeated() const noexcept { return isRepeated_; }

 private:
  std::string_view line_;
  DataDictionary frame_;
  bool isRepeated_ = false;
};

}  // namespace tarvo::crashhandler
