#include "toolkit/triage/names/name_decoration.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "toolkit/document/demangled_name.h"
#include "toolkit/triage/names/mangled_scope.h"

namespace tarvo::toolkit {
namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kDecimalDigits = "0123456789";
constexpr std::string_view kHexadecimalDigits = "0123456789abcdefABCDEF";

/// In front of the name of the function that a thunk leads to.
constexpr std::array<std::string_view, 7> kThunkWords = {
    "non-virtual thunk to ",
    "virtual thunk to ",
    "covariant return thunk to ",
    "[thunk]:",
    "[thunk]: ",
    "reference temporary #0 for ",
    // The body of an Objective-C block stands in a function of its own.
    "invocation function for block in ",
};

/// Behind the name of a function of which the compiler has made another one, or a part.
constexpr std::array<std::string_view, 17> kCloneWords = {
    "cold",        // what is hardly ever run, moved away
    "part",        // a part of it, which the other part calls
    "isra",        // with other parameters
    "constprop",   // with constants for parameters
    "clone",       // for other processors
    "lto_priv",    // of a private name that was taken already
    "localalias",  // the same under a name of its own
    "llvm",        // made visible for link-time optimisation
    "warm",        // the middle of a function that was taken apart
    "__uniq",      // of a private name that was made unique
    "resume",      // parts of a coroutine, ...
    "destroy",     // ...
    "cleanup",     // ...
    "actor",       // ...
    "stub",        // ... and what leads to a function
    "specialized",
    "default",  // of a function of which there are several for different processors
};

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsNumber(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X"))
    return text.size() > 2 &&
           text.substr(2).find_first_not_of(kHexadecimalDigits) == std::string_view::npos;
  return !text.empty() && text.find_first_not_of(kDecimalDigits) == std::string_view::npos;
}

/// "Draw + 0x1c", "Draw+0x1c", "abort - 12", "+ 0x3c050". A bare "+12" may be of an operator.
std::string_view WithoutOffset(std::string_view name) {
  const std::size_t sign = name.find_last_of("+-");
  if (sign == std::string_view::npos) return name;
  const std::string_view number = Trim(name.substr(sign + 1));
  const bool isApart = sign == 0 || kBlanks.find(name[sign - 1]) != std::string_view::npos;
  if (!IsNumber(number) || !(isApart || number.starts_with("0x"))) return name;
  return Trim(name.substr(0, sign));
}

/// "0x1a2b start".
std::string_view WithoutAddress(std::string_view name) {
  const std::size_t blank = name.find_first_of(kBlanks);
  if (!name.starts_with("0x") || blank == std::string_view::npos) return name;
  return IsNumber(name.substr(0, blank)) ? Trim(name.substr(blank)) : name;
}

/// "scene.dll!Draw", as debuggers of Windows write it.
std::string_view WithoutModule(std::string_view name) {
  const std::size_t mark = name.find('!');
  if (mark == 0 || mark == std::string_view::npos || mark + 1 == name.size()) return name;
  const auto isOfFileName = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.' || c == '-' ||
           c == '+';
  };
  const std::string_view module = name.substr(0, mark);
  if (!std::ranges::all_of(module, isOfFileName) || module.ends_with("operator")) return name;
  return name.substr(mark + 1);
}

/// "memcpy@@GLIBC_2.14", "puts@plt", "_Draw@8". Names of MSVC start with "?" and are full of them.
std::string_view WithoutVersion(std::string_view name) {
  if (name.starts_with('?') || name.starts_with('@')) return name;
  const std::size_t mark = name.find('@');
  if (mark == std::string_view::npos) return name;
  const std::string_view version = name.substr(mark);
  return version.find_first_of("()<>: ") == std::string_view::npos ? name.substr(0, mark) : name;
}

bool IsCloneWord(std::string_view word) {
  return std::ranges::find(kCloneWords, word) != kCloneWords.end() || IsNumber(word);
}

/// The last suffix with a dot of `name`, where it is one of a clone: "cold", "0".
std::size_t CloneSuffix(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == 0 || dot == std::string_view::npos) return std::string_view::npos;
  return IsCloneWord(name.substr(dot + 1)) ? dot : std::string_view::npos;
}

std::string_view WithoutCloneSuffixes(std::string_view name) {
  for (std::size_t dot = CloneSuffix(name); dot != std::string_view::npos; dot = CloneSuffix(name))
    name = name.substr(0, dot);
  return name;
}

/// " [clone .cold]", " (.cold)" and " [with T = int]", of which there may be several.
std::string_view WithoutClones(std::string_view name) {
  for (;;) {
    const std::size_t clone = std::min(name.rfind(" [clone "), name.rfind(" (."));
    const std::size_t with = std::min(name.rfind(" [with "), clone);
    if (with == std::string_view::npos) return WithoutCloneSuffixes(name);
    name = Trim(name.substr(0, with));
  }
}

std::string_view WithoutThunk(std::string_view name) {
  for (bool isFound = true; isFound;) {
    isFound = false;
    for (const std::string_view words : kThunkWords) {
      if (!name.starts_with(words)) continue;
      name = Trim(name.substr(words.size()));
      isFound = true;
    }
  }
  return name;
}

/// "_Z…" and, where symbols have an underline in front, "__Z…".
std::string DemangledOrScope(std::string_view name) {
  const std::size_t start = name.find_first_not_of('_');
  const bool isMangled =
      start != std::string_view::npos && start > 0 && start <= 4 && name[start] == 'Z';
  if (!isMangled) return MsvcScope(name).value_or(std::string(name));
  const std::string_view mangled = name.substr(start - 1);
  std::string demangled = Demangled(mangled);
  return demangled == mangled ? ItaniumScope(mangled).value_or(std::string(name)) : demangled;
}

}  // namespace

std::string UndecoratedName(std::string_view name) {
  name = WithoutOffset(WithoutAddress(Trim(name)));
  name = WithoutModule(name);
  if (name.empty() || IsNumber(name) || name == "?" || name == "??" || name == "(nil)" ||
      name == "<unknown>" || name == "unknown")
    return {};
  const std::string demangled = DemangledOrScope(WithoutClones(WithoutVersion(name)));
  return std::string(WithoutThunk(WithoutClones(WithoutOffset(demangled))));
}

}  // namespace tarvo::toolkit
