#include "toolkit/report/spelling.h"

#include <algorithm>
#include <array>
#include <utility>

#include "tarvo/crash_report.h"

namespace tarvo::report {

namespace property = crash_report::property;

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";
constexpr std::string_view kLineEnds("\r\n\0", 3);
constexpr char kEscape = '_';

constexpr bool IsLetter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool IsPlain(char c) noexcept { return IsLetter(c) || (c >= '0' && c <= '9'); }
constexpr bool IsWord(char c) noexcept { return IsPlain(c) || c == '_'; }

std::string_view LeadingWord(std::string_view text) noexcept {
  const auto* end = std::ranges::find_if_not(text, IsWord);
  return {text.begin(), end};
}

std::string SpelledUnless(bool isTaken, std::string_view text) {
  const bool isReadable = isTaken && text.find_first_of(kLineEnds) == std::string_view::npos &&
                          !text.starts_with(crash_report::kSpelled);
  return isReadable ? std::string(text) : Spelled(text);
}

bool StartsWithBlank(std::string_view text) noexcept {
  return text.starts_with(' ') || text.starts_with('\t');
}

// --- Putting back --------------------------------------------------------------------------------

void Restore(DataDictionary& dictionary, std::string_view key) {
  const auto* text = dictionary.FindAs<String>(key);
  if (text == nullptr) return;
  if (const auto name = Unspelled(text->View())) dictionary.Set(String(key), String(*name));
}

/// A function stands with its offset behind it: "Spelled_… + 0x1c".
void RestoreFunction(DataDictionary& frame) {
  const auto* text = frame.FindAs<String>(property::kFunctionName);
  if (text == nullptr) return;
  const std::string_view function = LeadingWord(text->View());
  if (const auto name = Unspelled(function))
    frame.Set(String(property::kFunctionName),
              String(*name + std::string(text->View().substr(function.size()))));
}

bool IsSpelled(const String& text) { return Unspelled(text.View()).has_value(); }

/// All keys and values of a dictionary of texts.
void RestoreTexts(DataDictionary& texts) {
  const bool isAnySpelled = std::ranges::any_of(texts, [](const DataDictionary::Entry& entry) {
    const auto* value = entry.value.As<String>();
    return IsSpelled(entry.key) || (value != nullptr && IsSpelled(*value));
  });
  if (!isAnySpelled) return;
  const auto restored = [](const String& text) {
    const auto name = Unspelled(text.View());
    return name ? String(*name) : text;
  };
  DataDictionary all;
  for (const auto& [key, value] : texts) {
    const auto* text = value.As<String>();
    all.Set(restored(key), text == nullptr ? value : DataValue(restored(*text)));
  }
  texts = std::move(all);
}

/// Calls `visit` for each dictionary in the array `key` of `parent`.
template <typename Visit>
void ForEachDictionary(DataDictionary& parent, std::string_view key, Visit visit) {
  DataValue* value = parent.FindMutable(key);
  auto* array = value == nullptr ? nullptr : value->As<DataArray>();
  if (array == nullptr) return;
  for (std::size_t i = 0; i < array->Size(); ++i)
    if (auto* element = array->Mutable(i).As<DataDictionary>()) visit(*element);
}

void RestoreThread(DataDictionary& thread) {
  ForEachDictionary(thread, property::kCallstack, [](DataDictionary& frame) {
    Restore(frame, property::kModuleName);
    RestoreFunction(frame);
  });
  DataValue* variables = thread.FindMutable(property::kProperties);
  if (auto* texts = variables == nullptr ? nullptr : variables->As<DataDictionary>())
    RestoreTexts(*texts);
}

}  // namespace

std::string Spelled(std::string_view text) {
  std::string spelled(crash_report::kSpelled);
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (IsPlain(c)) {
      spelled += c;
    } else {
      spelled += {kEscape, kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return spelled;
}

std::optional<std::string> Unspelled(std::string_view text) {
  if (!text.starts_with(crash_report::kSpelled)) return std::nullopt;
  text.remove_prefix(crash_report::kSpelled.size());
  std::string name;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != kEscape) {
      if (!IsPlain(text[i])) return std::nullopt;
      name += text[i];
      continue;
    }
    if (text.size() - i < 3) return std::nullopt;
    const std::size_t high = kDigits.find(text[++i]);
    const std::size_t low = kDigits.find(text[++i]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    name += static_cast<char>(high << 4 | low);
    if (IsPlain(name.back())) return std::nullopt;
  }
  return name;
}

std::string FrameModuleText(std::string_view text) {
  constexpr std::array kOpeners = {crash_report::section::kRegisters,
                                   crash_report::section::kVariables};
  if (text.empty() || text == "?") return std::string(text);
  const char first = text.front();
  const bool isName = IsLetter(first) || first == '_' || (first & 0x80) != 0;
  const bool opensBlock = std::ranges::find(kOpeners, LeadingWord(text)) != kOpeners.end();
  const bool isCut = text.find(':') != std::string_view::npos ||
                     text.find(crash_report::frame::kStackPointer) != std::string_view::npos;
  return SpelledUnless(isName && !opensBlock && !isCut, text);
}

std::string FrameFunctionText(std::string_view text) {
  const bool isCut = text.find(crash_report::frame::kStackPointer) != std::string_view::npos;
  return SpelledUnless(!StartsWithBlank(text) && !isCut, text);
}

std::string KeyText(std::string_view text) {
  const bool isIdentifier = !text.empty() && LeadingWord(text).size() == text.size() &&
                            (IsLetter(text.front()) || text.front() == '_');
  return SpelledUnless(isIdentifier, text);
}

std::string ValueText(std::string_view text) { return SpelledUnless(!StartsWithBlank(text), text); }

void RestoreSpelled(DataDictionary& crashLog) {
  ForEachDictionary(crashLog, property::kThreads, RestoreThread);
  ForEachDictionary(crashLog, property::kLoadedModules, RestoreTexts);
}

}  // namespace tarvo::report
