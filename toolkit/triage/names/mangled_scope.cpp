#include "toolkit/triage/names/mangled_scope.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace tarvo::toolkit {
namespace {

struct OperatorCode {
  std::string_view code;
  std::string_view name;
};

/// Names of operators in mangled names of MSVC, behind a "?" (those that crash logs have).
constexpr std::array kMsvcOperators = {
    OperatorCode{"2", "operator new"},      OperatorCode{"3", "operator delete"},
    OperatorCode{"4", "operator="},         OperatorCode{"5", "operator>>"},
    OperatorCode{"6", "operator<<"},        OperatorCode{"7", "operator!"},
    OperatorCode{"8", "operator=="},        OperatorCode{"9", "operator!="},
    OperatorCode{"A", "operator[]"},        OperatorCode{"C", "operator->"},
    OperatorCode{"D", "operator*"},         OperatorCode{"E", "operator++"},
    OperatorCode{"F", "operator--"},        OperatorCode{"G", "operator-"},
    OperatorCode{"H", "operator+"},         OperatorCode{"I", "operator&"},
    OperatorCode{"K", "operator/"},         OperatorCode{"M", "operator<"},
    OperatorCode{"N", "operator<="},        OperatorCode{"O", "operator>"},
    OperatorCode{"P", "operator>="},        OperatorCode{"R", "operator()"},
    OperatorCode{"X", "operator*="},        OperatorCode{"Y", "operator+="},
    OperatorCode{"Z", "operator-="},        OperatorCode{"_U", "operator new[]"},
    OperatorCode{"_V", "operator delete[]"}};

std::string Joined(const std::vector<std::string>& scopes) {
  std::string text;
  for (const std::string& scope : scopes) text += (text.empty() ? "" : "::") + scope;
  return text;
}

/// Takes a mangled name of the Itanium ABI apart, as far as names and scopes go. Types are passed
/// over where they are simple.
class ItaniumScopes {
 public:
  explicit ItaniumScopes(std::string_view text) : rest_(text) {}

  std::optional<std::string> Read() {
    while (Take("Z") || Take("N") || Take("L") || Take("K") || Take("V")) isNested_ = true;
    if (!ReadNames()) return std::nullopt;
    return Joined(scopes_);
  }

 private:
  bool Take(std::string_view text) {
    const bool isThere = rest_.starts_with(text);
    if (isThere) rest_.remove_prefix(text.size());
    return isThere;
  }

  /// Names one after the other; behind those of a function that another entity stands in are its
  /// parameters, which simple types and names are, up to the "E" in front of the entity.
  bool ReadNames() {
    while (!rest_.empty()) {
      if (ReadName()) continue;
      if (Take("cl")) {
        scopes_.emplace_back("operator()");
        return true;
      }
      if (!isNested_ || !Take("E")) break;
      const std::size_t entity = rest_.find_first_not_of("abcdefghijlmnopqrstuvwxyzPRKOSt_0");
      if (entity == std::string_view::npos || rest_[entity] != 'E') break;
      rest_.remove_prefix(entity + 1);
      while (Take("N") || Take("K")) continue;
    }
    return !scopes_.empty();
  }

  bool ReadName() {
    std::size_t size = 0;
    const auto [end, status] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), size);
    const auto digits = static_cast<std::size_t>(end - rest_.data());
    if (status != std::errc{} || size == 0 || size > rest_.size() - digits) return false;
    const std::string_view name = rest_.substr(digits, size);
    scopes_.emplace_back(name.starts_with("_GLOBAL__N") ? "(anonymous namespace)" : name);
    rest_.remove_prefix(digits + size);
    return true;
  }

  std::string_view rest_;
  std::vector<std::string> scopes_{};
  bool isNested_ = false;
};

/// What is called "?…" in a mangled name of MSVC: operators, constructors and destructors.
std::string MsvcSpecialName(std::string_view& rest, bool& isStructor) {
  if (rest.starts_with('0') || rest.starts_with('1')) {
    isStructor = true;
    const std::string mark = rest.starts_with('1') ? "~" : "";
    rest.remove_prefix(1);
    return mark;
  }
  for (const OperatorCode& known : kMsvcOperators) {
    if (!rest.starts_with(known.code)) continue;
    rest.remove_prefix(known.code.size());
    return std::string(known.name);
  }
  return {};
}

}  // namespace

std::optional<std::string> ItaniumScope(std::string_view name) {
  if (!name.starts_with("_Z")) return std::nullopt;
  return ItaniumScopes(name.substr(2)).Read();
}

std::optional<std::string> MsvcScope(std::string_view name) {
  if (!name.starts_with('?') || name.size() < 2) return std::nullopt;
  std::string_view rest = name.substr(1);
  std::vector<std::string> scopes;  // from the inside out
  bool isStructor = false;
  if (rest.starts_with('?')) {
    rest.remove_prefix(1);
    scopes.push_back(MsvcSpecialName(rest, isStructor));
    if (scopes[0].empty() && !isStructor) return std::nullopt;
  }
  // Names end in "@", the last one in "@@". Template arguments and back references are not read.
  while (!rest.empty() && !rest.starts_with('@')) {
    const std::size_t end = rest.find('@');
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view scope = rest.substr(0, end);
    if (scope.find_first_of("?$0123456789") == 0 && !scope.starts_with("?A")) return std::nullopt;
    scopes.emplace_back(scope.starts_with("?A") ? "(anonymous namespace)" : scope);
    rest.remove_prefix(end + 1);
  }
  if (scopes.empty() || (isStructor && scopes.size() < 2)) return std::nullopt;
  if (isStructor) scopes[0] += scopes[1];
  std::ranges::reverse(scopes);
  return Joined(scopes);
}

}  // namespace tarvo::toolkit
