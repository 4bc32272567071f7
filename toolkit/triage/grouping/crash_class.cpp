#include "toolkit/triage/grouping/crash_class.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "toolkit/triage/names/name_key.h"

namespace tarvo::toolkit {
namespace {

struct Family {
  std::string_view name;  ///< of a signal or exception, or its number
  std::string_view family;
};

constexpr std::string_view kMemoryAccess = "invalid memory access";
constexpr std::string_view kArithmetic = "arithmetic error";
constexpr std::string_view kInstruction = "trap or invalid instruction";
constexpr std::string_view kAbort = "abort";
constexpr std::string_view kRequest = "ended from outside";
constexpr std::string_view kOutOfMemory = "out of memory";
constexpr std::string_view kException = "exception";

constexpr std::array kFamilies = {
    Family{"SIGSEGV", kMemoryAccess},
    Family{"SIGBUS", kMemoryAccess},
    Family{"ACCESS_VIOLATION", kMemoryAccess},
    Family{"IN_PAGE_ERROR", kMemoryAccess},
    Family{"DATATYPE_MISALIGNMENT", kMemoryAccess},
    Family{"BAD_ACCESS", kMemoryAccess},
    Family{"0XC0000005", kMemoryAccess},
    Family{"0XC0000006", kMemoryAccess},
    Family{"0X80000002", kMemoryAccess},
    Family{"0X0000000B", kMemoryAccess},
    Family{"0X00000007", kMemoryAccess},
    Family{"SIGFPE", kArithmetic},
    Family{"DIVIDE_BY_ZERO", kArithmetic},
    Family{"INT_OVERFLOW", kArithmetic},
    Family{"ARITHMETIC", kArithmetic},
    Family{"0XC0000094", kArithmetic},
    Family{"0X00000008", kArithmetic},
    Family{"SIGILL", kInstruction},
    Family{"SIGTRAP", kInstruction},
    Family{"ILLEGAL_INSTRUCTION", kInstruction},
    Family{"PRIV_INSTRUCTION", kInstruction},
    Family{"BAD_INSTRUCTION", kInstruction},
    Family{"BREAKPOINT", kInstruction},
    Family{"0XC000001D", kInstruction},
    Family{"0X80000003", kInstruction},
    Family{"0X00000004", kInstruction},
    Family{"0X00000005", kInstruction},
    Family{"SIGABRT", kAbort},
    Family{"EXC_CRASH", kAbort},
    Family{"0X40000015", kAbort},
    Family{"0XC0000409", kAbort},
    Family{"0X00000006", kAbort},
    Family{"SIGHUP", kRequest},
    Family{"SIGTERM", kRequest},
    Family{"SIGINT", kRequest},
    Family{"SIGQUIT", kRequest},
    Family{"0X00000001", kRequest},
    Family{"STACK_OVERFLOW", kStackOverflow},
    Family{"0XC00000FD", kStackOverflow},
    Family{"NO_MEMORY", kOutOfMemory},
    Family{"0XC0000017", kOutOfMemory},
    Family{"0XE06D7363", kException},
};

/// Exceptions that say that there is no memory left.
constexpr std::array<std::string_view, 2> kMemoryExceptions = {"std::bad_alloc",
                                                               "std::bad_array_new_length"};

/// So far from the stack pointer a fault is one of the stack: a function's frame, and what its
/// prologue probes.
constexpr std::uint64_t kNearStackPointer = 0x10000;

std::string UpperCase(std::string_view text) {
  std::string upper(text);
  for (char& c : upper)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return upper;
}

/// The family of the first of these texts that tells one.
std::string_view FamilyOf(const CrashSigns& signs) {
  for (const std::string_view text : {signs.signal, signs.exceptionText, signs.exceptionNumber}) {
    const std::string upper = UpperCase(text);
    const auto known = std::ranges::find_if(kFamilies, [&](const Family& family) {
      return upper.find(family.name) != std::string::npos;
    });
    if (known != kFamilies.end()) return known->family;
  }
  return {};
}

bool IsStackOverflow(const CrashSigns& signs, std::string_view family) {
  if (family == kStackOverflow) return true;
  if (family != kMemoryAccess) return false;
  if (signs.isDeeplyRecursive) return true;
  if (!signs.faultAddress || !signs.stackPointer) return false;
  const std::uint64_t distance = std::max(*signs.faultAddress, *signs.stackPointer) -
                                 std::min(*signs.faultAddress, *signs.stackPointer);
  return distance < kNearStackPointer;
}

bool IsHexadecimal(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }
bool IsDecimal(char c) { return c >= '0' && c <= '9'; }
bool IsWord(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

/// How many characters at `at` are a number of their own; 0: none.
std::size_t NumberAt(std::string_view text, std::size_t at) {
  if (!IsDecimal(text[at]) || (at > 0 && IsWord(text[at - 1]))) return 0;
  const std::size_t prefix = text.substr(at).starts_with("0x") ? 2 : 0;
  std::size_t end = at + prefix;
  while (end < text.size() && (IsHexadecimal(text[end]) || text[end] == '.')) ++end;
  return end - at;
}

}  // namespace

std::string MaskNumbers(std::string_view text) {
  constexpr std::size_t kMost = 200;
  std::string masked;
  for (std::size_t i = 0; i < text.size() && masked.size() < kMost;) {
    const std::size_t number = NumberAt(text, i);
    masked += number > 0 ? '#' : text[i];
    i += std::max<std::size_t>(number, 1);
  }
  return masked;
}

std::string CrashClass(const CrashSigns& signs) {
  const std::string_view family = FamilyOf(signs);
  if (IsStackOverflow(signs, family)) return std::string(kStackOverflow);
  if (!signs.exceptionType.empty()) {
    const std::string type = MakeNameKey(signs.exceptionType).text;
    const bool isMemory = std::ranges::find(kMemoryExceptions, type) != kMemoryExceptions.end();
    return isMemory ? std::string(kOutOfMemory) : "exception " + type;
  }
  const bool mayBeAssertion = family == kAbort || family == kInstruction || family.empty();
  if (mayBeAssertion && !signs.assertion.empty())
    return "assertion: " + MaskNumbers(signs.assertion);
  if (!family.empty()) return std::string(family);
  std::string_view text = signs.exceptionText.empty() ? signs.exceptionNumber : signs.exceptionText;
  text.remove_prefix(std::min(text.find_first_not_of("\" "), text.size()));
  text = text.substr(0, text.find_last_not_of("\" ") + 1);
  return text.empty() ? "unknown" : MaskNumbers(text);
}

}  // namespace tarvo::toolkit
