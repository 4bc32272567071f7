#include "toolkit/triage/names/name_key.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <utility>
#include <vector>

#include "toolkit/triage/names/bracket_skip.h"
#include "toolkit/triage/names/name_decoration.h"

namespace tarvo::toolkit {
namespace {

using Scopes = std::vector<std::string>;

/// A function that MSVC names as a scope has further ones inside; so deep they are read.
constexpr int kDeepestQuote = 8;

constexpr std::string_view kUnnamedType = "{unnamed}";
constexpr std::string_view kCallOperator = "operator()";

/// The standard libraries' versions of themselves, which stand between "std" and a name.
constexpr std::array<std::string_view, 13> kInlineNamespaces = {
    "__1",        // libc++
    "__2",        // the same, second version
    "__ndk1",     // the same on Android
    "__Cr",       // the same in a browser's build
    "__fs",       // libc++'s file system
    "__cxx11",    // libstdc++'s texts and lists since GCC 5
    "__cxx1998",  // what its debug mode stands on, ...
    "__debug",    // ... and the debug mode
    "_V2",        // its clocks and error codes
    "__8",        // with versions in all names
    "__n4861",    // coroutines
    "__variant",  // details that g++ 12's debug information names or not
    "__gnu_cxx_ldbl128",
};

/// What some demanglers call "basic_string" and so on, of char; std's only.
constexpr std::array<std::string_view, 4> kAbbreviations = {"string", "istream", "ostream",
                                                            "iostream"};

/// What unnamed namespaces are called. They are left out of keys: g++ writes none of functions that
/// it has inlined.
constexpr std::array<std::string_view, 6> kUnnamedNamespaces = {
    "(anonymous namespace)", "{anonymous}",  "anonymous namespace",
    "anonymous-namespace",   "_GLOBAL__N_1", "<unnamed>"};

/// What stands behind parameters, or in front of a scope that follows them.
constexpr std::array<std::string_view, 8> kQualifiers = {
    "const", "volatile", "noexcept", "&&", "&", "__ptr64", "__restrict", "mutable"};

bool IsWordCharacter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$' ||
         static_cast<unsigned char>(c) >= 0x80;
}

bool IsLambda(std::string_view text) {
  // g++ "{lambda(int)#1}" and "<lambda(int)>", clang "'lambda'(int)" and "$_0", its types "(lambda
  // at a.cpp:3:1)", MSVC "<lambda_0>", Rust "{{closure}}".
  constexpr std::array<std::string_view, 7> kStarts = {"{lambda",     "<lambda", "lambda",     "$_",
                                                       "(lambda at ", "'lambda", "{{closure}}"};
  return std::ranges::any_of(kStarts, [&](std::string_view start) {
    return text.starts_with(start) &&
           (start != "lambda" || text.find_first_not_of("0123456789", 6) == std::string_view::npos);
  });
}

/// Reads an undecorated name from its start to its end and keeps the names of scopes.
class NameReader {
 public:
  NameReader(std::string_view text, int depth) : text_(text), depth_(depth) {}

  Scopes Read() {
    while (at_ < text_.size() && !isAtEnd_) Step();
    CloseScope();
    if (scopes_.empty()) scopes_ = std::move(before_);
    return std::move(scopes_);
  }

 private:
  [[nodiscard]] std::string_view Rest() const { return text_.substr(at_); }
  [[nodiscard]] bool IsAtScopeStart() const { return scope_.empty(); }

  void Step() {
    if (Rest().starts_with("::")) {
      at_ += 2;
      CloseScope();
    } else if (IsAtScopeStart() && IsOperator()) {
      ReadOperator();
    } else if (IsAtScopeStart() && ReadSpecialScope()) {
      return;
    } else if (text_[at_] == '<' || text_[at_] == '[' || text_[at_] == '`') {
      // Template arguments; an ABI tag; "f`adjustor{8}'".
      at_ = BehindBracket(text_, at_);
    } else if (text_[at_] == '(') {
      ReadParameters();
    } else if (text_[at_] == ' ') {
      ReadBlank();
    } else {
      scope_ += text_[at_++];
    }
  }

  void CloseScope() {
    if (!scope_.empty()) scopes_.push_back(std::move(scope_));
    scope_.clear();
  }

  void Drop() {
    CloseScope();
    if (!scopes_.empty()) before_ = std::move(scopes_);
    scopes_.clear();
  }

  /// What is read so far was a return type or a word like "static", unless nothing follows.
  void ReadBlank() {
    SkipQualifiers();
    const std::string_view rest = Rest();
    isAtEnd_ = rest.empty() || rest.starts_with('[') || rest.starts_with("(.");
    if (!isAtEnd_ && !rest.starts_with("::") && !rest.starts_with('<') && !rest.starts_with('('))
      Drop();
    // "void (anonymous namespace)::f()" and "operator() <int>()": only the first is another name.
    if (rest.starts_with("(anonymous ") || rest.starts_with("<lambda")) Drop();
  }

  void ReadParameters() {
    at_ = BehindBracket(text_, at_);
    SkipQualifiers();
    const std::string_view rest = Rest();
    if (rest.starts_with("::") || rest.starts_with('(') || rest.starts_with('`')) return;
    const bool isReturnType =
        !rest.empty() && !rest.starts_with("requires ") &&
        (IsWordCharacter(rest[0]) || rest[0] == '(' || rest[0] == '<' || rest[0] == '\'');
    if (isReturnType)
      Drop();
    else
      isAtEnd_ = true;
  }

  void SkipQualifiers() {
    for (bool isFound = true; isFound;) {
      at_ = std::min(text_.find_first_not_of(" *", at_), text_.size());
      isFound = std::ranges::any_of(kQualifiers, [&](std::string_view word) {
        const std::string_view rest = Rest();
        const bool isThere =
            rest.starts_with(word) &&
            (rest.size() == word.size() || !IsWordCharacter(rest[word.size()]) || word[0] == '&');
        if (isThere) at_ += word.size();
        return isThere;
      });
    }
  }

  [[nodiscard]] bool IsOperator() const {
    constexpr std::string_view kWord = "operator";
    return Rest().starts_with(kWord) &&
           (Rest().size() == kWord.size() || !IsWordCharacter(Rest()[kWord.size()]));
  }

  void ReadOperator() {
    at_ += std::string_view("operator").size();
    scope_ = "operator";
    const std::size_t blanks = std::min(Rest().find_first_not_of(' '), Rest().size());
    if (const std::size_t sign = OperatorSign(Rest().substr(blanks)); sign > 0) {
      at_ += blanks;
      scope_ += Rest().substr(0, sign);
      at_ += sign;
      if (!scope_.ends_with("\"\"")) return SkipArguments();
    }
    ReadOperatorWord();
  }

  void SkipArguments() {
    at_ = std::min(text_.find_first_not_of(' ', at_), text_.size());
    if (Rest().starts_with('<')) at_ = BehindBracket(text_, at_);
  }

  /// "new[]", a literal's suffix, the type of a conversion: up to the parameters, with one blank
  /// between words and none elsewhere.
  void ReadOperatorWord() {
    bool isApart = !scope_.ends_with('"');
    while (at_ < text_.size() && text_[at_] != '(') {
      const char c = text_[at_];
      if (c == '<') {
        at_ = BehindBracket(text_, at_);
        continue;
      }
      if (c != ' ' && std::exchange(isApart, false) && IsWordCharacter(c) &&
          IsWordCharacter(scope_.back()))
        scope_ += ' ';
      if (c == ' ')
        isApart = true;
      else
        scope_ += c;
      ++at_;
    }
    for (const std::string_view version : kInlineNamespaces)
      if (const std::size_t found = scope_.find("std::" + std::string(version) + "::");
          found != std::string::npos)
        scope_.erase(found + 5, version.size() + 2);
  }

  /// Lambdas, unnamed things, and functions that MSVC names in quotes.
  bool ReadSpecialScope() {
    const char c = text_[at_];
    const bool isLambdaOfClang = c == '$' && Rest().starts_with("$_");
    if (isLambdaOfClang) {
      at_ = std::min(text_.find_first_not_of("0123456789", at_ + 2), text_.size());
      scope_ = kLambda;
      return true;
    }
    if (c != '{' && c != '<' && c != '(' && c != '`' && c != '\'') return false;
    if (c == '\'') return ReadQuotedByClang();
    const std::size_t end = BehindBracket(text_, at_);
    const std::string_view whole = text_.substr(at_, end - at_);
    const bool isKnown = c == '`' ? ReadQuoteOfMsvc(whole) : ReadBracketed(whole);
    if (isKnown) at_ = end;
    return isKnown;
  }

  bool ReadQuotedByClang() {
    const std::size_t end = text_.find('\'', at_ + 1);
    if (end == std::string_view::npos) return false;
    scope_ = IsLambda(text_.substr(at_ + 1, end - at_ - 1)) ? kLambda : kUnnamedType;
    at_ = end + 1;
    return true;
  }

  bool ReadBracketed(std::string_view whole) {
    if (std::ranges::find(kUnnamedNamespaces, whole) != kUnnamedNamespaces.end()) {
      scope_ = whole;
    } else if (whole.starts_with("<lambda_invoker_")) {
      scope_ = "_FUN";
    } else if (IsLambda(whole)) {
      scope_ = kLambda;
    } else if (whole.starts_with("{unnamed") || whole.starts_with("<unnamed")) {
      scope_ = kUnnamedType;
    } else if (whole.starts_with("{default arg")) {
      scope_.clear();  // the parameter that a lambda is the default of; others do not write it
    } else if (const std::size_t as = whole.find(" as ");
               whole.starts_with('<') && as != std::string_view::npos && scopes_.empty()) {
      Splice(whole.substr(1, as - 1));  // Rust: "<Type as Trait>::method"
    } else {
      return false;
    }
    return true;
  }

  bool ReadQuoteOfMsvc(std::string_view whole) {
    const std::string_view inside =
        whole.substr(1, whole.size() - (whole.ends_with('\'') && whole.size() > 1 ? 2 : 1));
    if (std::ranges::find(kUnnamedNamespaces, inside) != kUnnamedNamespaces.end()) {
      scope_ = inside;
    } else if (inside.ends_with(" deleting destructor") || inside == "vbase destructor") {
      scope_ = "~" + (scopes_.empty() ? std::string() : scopes_.back());
    } else if (inside.find_first_not_of("0123456789") != std::string_view::npos) {
      Splice(inside);
    }
    return true;
  }

  void Splice(std::string_view name) {
    if (depth_ >= kDeepestQuote) return;
    Scopes inner = NameReader(name, depth_ + 1).Read();
    std::ranges::move(inner, std::back_inserter(scopes_));
  }

  std::string_view text_;
  int depth_;
  std::size_t at_ = 0;
  bool isAtEnd_ = false;
  std::string scope_{};  ///< the one that is being read
  Scopes scopes_{};
  Scopes before_{};  ///< what was dropped last; the name, if nothing came behind it
};

bool IsLeftOut(const Scopes& kept, const std::string& scope) {
  if (std::ranges::find(kUnnamedNamespaces, scope) != kUnnamedNamespaces.end()) return true;
  const bool isOfStandardLibrary = !kept.empty() && kept[0] == "std";
  if (isOfStandardLibrary && std::ranges::find(kInlineNamespaces, scope) != kInlineNamespaces.end())
    return true;
  // MSVC counts the blocks of a function: "f::__l2".
  const bool isBlock = scope.starts_with("__l") && scope.size() > 3 &&
                       scope.find_first_not_of("0123456789", 3) == std::string::npos;
  // Rust: "…::h0123456789abcdef", a hash of the types.
  constexpr std::size_t kRustHash = 17;
  const bool isHash = scope.size() == kRustHash && scope[0] == 'h' && !kept.empty() &&
                      scope.find_first_not_of("0123456789abcdef", 1) == std::string::npos;
  return isBlock || isHash;
}

bool IsInvoker(std::string_view scope) {
  return scope == "_FUN" || scope == "__invoke" || scope.starts_with("operator void ");
}

}  // namespace

NameKey MakeNameKey(std::string_view name) {
  const std::string undecorated = UndecoratedName(name.substr(0, kLongestName));
  // Objective-C's methods are names as they stand.
  if (undecorated.starts_with("-[") || undecorated.starts_with("+["))
    return {.text = undecorated.substr(0, undecorated.find(']') + 1)};
  NameKey key;
  Scopes kept;
  for (std::string& scope : NameReader(undecorated, 0).Read()) {
    if (IsLeftOut(kept, scope)) continue;
    const bool isOfStd = kept.size() == 1 && kept[0] == "std";
    if (isOfStd && std::ranges::find(kAbbreviations, scope) != kAbbreviations.end())
      scope.insert(0, "basic_");
    const bool isOfLambda = !kept.empty() && kept.back() == kLambda;
    key.isLambdaInvoker = isOfLambda && IsInvoker(scope);
    if (isOfLambda && (key.isLambdaInvoker || scope == kCallOperator)) continue;
    kept.push_back(std::move(scope));
  }
  for (const std::string& scope : kept) key.text += (key.text.empty() ? "" : "::") + scope;
  key.isBareLambda = key.text == kCallOperator;
  return key;
}

std::string LambdaAmongArguments(std::string_view name) {
  constexpr std::array<std::string_view, 5> kLambdas = {"::<lambda(", "::{lambda(", "::'lambda",
                                                        "::$_", "::<lambda_"};
  name = name.substr(0, kLongestName);
  const std::size_t arguments = name.find('<');
  std::size_t lambda = std::string_view::npos;
  for (const std::string_view text : kLambdas)
    lambda = std::min(lambda, name.find(text, std::min(arguments, name.size())));
  if (lambda == std::string_view::npos) return {};
  // Back to the start of the argument, over the parameters of functions that it stands in.
  std::size_t start = lambda;
  for (int depth = 0; start > 0; --start) {
    const char c = name[start - 1];
    if (c == ')' || c == '>' || c == '}') ++depth;
    const bool isOpening = c == '(' || c == '<' || c == '{';
    if (depth == 0 && (isOpening || c == ',')) break;
    if (isOpening) --depth;
  }
  const std::size_t end = std::min(name.find_first_of(">,", lambda + 4), name.size());
  const std::string_view scope = name.substr(start, lambda - start);
  if (end <= lambda || scope.empty()) return {};
  const std::string enclosing = MakeNameKey(scope).text;
  return enclosing.empty() ? std::string() : enclosing + "::" + std::string(kLambda);
}

}  // namespace tarvo::toolkit
