#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// What a crash log says of the kind of a crash. Views of the log's texts; empty: not said.
struct CrashSigns {
  std::string_view exceptionText{};    ///< "\"SIGSEGV\"", "\"ACCESS_VIOLATION\""
  std::string_view exceptionNumber{};  ///< "0xC0000005"
  std::string_view signal{};           ///< of the crash guard: "SIGABRT"
  std::string_view exceptionType{};    ///< of what nobody caught: "std::runtime_error"
  std::string_view assertion{};        ///< a line of the log that tells of one
  std::optional<std::uint64_t> faultAddress{};
  std::optional<std::uint64_t> stackPointer{};  ///< at the fault
  bool isDeeplyRecursive = false;  ///< the crashed thread's stack is one function over and over
};

inline constexpr std::string_view kStackOverflow = "stack overflow";

/// The class of a crash, the first that holds: kStackOverflow, "out of memory", "exception TYPE",
/// "assertion: TEXT" with numbers masked, the family of the signal ("invalid memory access"), else
/// the exception's text. Families and not signals: one bug gives SIGSEGV or SIGBUS, and another
/// system calls it otherwise.
[[nodiscard]] std::string CrashClass(const CrashSigns& signs);

/// `text` with each number, decimal or hexadecimal, as "#", and at most 200 bytes of it.
[[nodiscard]] std::string MaskNumbers(std::string_view text);

}  // namespace tarvo::toolkit
