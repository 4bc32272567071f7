#include "toolkit/triage/grouping/stack_keys.h"

#include <charconv>
#include <string_view>

#include "toolkit/triage/grouping/frame_rules.h"
#include "toolkit/triage/names/name_key.h"

namespace tarvo::toolkit {
namespace {

std::string PlaceKey(const StackEntry& entry) {
  if (!entry.moduleOffset || entry.module.empty()) return std::string(kUnknownPlace);
  char digits[16];
  const auto [end, status] = std::to_chars(digits, digits + sizeof digits, *entry.moduleOffset, 16);
  std::string key = entry.module + "+0x" + std::string(digits, end);
  if (!entry.build.empty()) key += "@" + entry.build;
  return key;
}

/// The key of the bare lambda at `index`; the entries behind it have theirs.
std::string LambdaKey(const CrashStack& stack, std::size_t index) {
  for (std::size_t i = index + 1; i < stack.size(); ++i) {
    const StackEntry& caller = stack[i];
    if (std::string lambda = LambdaAmongArguments(caller.function); !lambda.empty()) return lambda;
    if (!caller.isNamed || IsGlue(caller)) continue;
    if (MakeNameKey(caller.function).isLambdaInvoker) return caller.key;
    return caller.key + "::" + std::string(kLambda);
  }
  return std::string(kLambda);
}

}  // namespace

void SetKeys(CrashStack& stack) {
  for (std::size_t i = stack.size(); i-- > 0;) {
    StackEntry& entry = stack[i];
    NameKey name = MakeNameKey(entry.function);
    entry.isNamed = !name.text.empty() && entry.symbolOffset.value_or(0) <= kFurthestFromSymbol;
    entry.key = entry.isNamed ? std::move(name.text) : PlaceKey(entry);
    if (entry.isNamed && name.isBareLambda) entry.key = LambdaKey(stack, i);
  }
}

}  // namespace tarvo::toolkit
