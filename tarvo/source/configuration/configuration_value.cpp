#include "configuration/configuration_value.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

#include "tarvo/format.h"

namespace tarvo {
namespace {

struct TruthWord {
  std::string_view text;
  bool value;
};
constexpr std::array<TruthWord, 8> kTruthWords{{{"true", true},
                                                {"false", false},
                                                {"yes", true},
                                                {"no", false},
                                                {"on", true},
                                                {"off", false},
                                                {"1", true},
                                                {"0", false}}};

template <typename Number>
std::optional<ConfigurationValue> ParseNumber(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stopped, status] = std::from_chars(text.data(), end, number);
  if (status != std::errc{} || stopped != end) return std::nullopt;
  return number;
}

std::optional<ConfigurationValue> ParseTruth(std::string_view text) {
  const String word(text);
  const auto* found = std::ranges::find_if(
      kTruthWords, [&](const TruthWord& known) { return word.EqualsIgnoringCase(known.text); });
  if (found == kTruthWords.end()) return std::nullopt;
  return found->value;
}

}  // namespace

std::optional<ConfigurationValue> ParseValue(const ConfigurationRecord& record,
                                             std::string_view text) {
  std::optional<ConfigurationValue> value;
  switch (record.kind) {
    case ConfigurationKind::Bool:
      value = ParseTruth(text);
      break;
    case ConfigurationKind::Int:
      value = ParseNumber<std::int64_t>(text);
      break;
    case ConfigurationKind::Float:
      value = ParseNumber<double>(text);
      break;
    case ConfigurationKind::String:
      value = String(text);
      break;
  }
  return value ? AcceptValue(record, *std::move(value)) : std::nullopt;
}

std::optional<ConfigurationValue> AcceptValue(const ConfigurationRecord& record,
                                              ConfigurationValue value) {
  if (const auto* whole = std::get_if<std::int64_t>(&value);
      whole != nullptr && record.kind == ConfigurationKind::Float)
    value = static_cast<double>(*whole);
  if (value.index() != static_cast<std::size_t>(record.kind)) return std::nullopt;
  if (const auto* number = std::get_if<std::int64_t>(&value);
      number != nullptr && (*number < record.minimum || *number > record.maximum))
    return std::nullopt;
  if (const auto* number = std::get_if<double>(&value);
      number != nullptr && !std::isfinite(*number))
    return std::nullopt;
  return value;
}

ConfigurationValue DefaultValue(const ConfigurationRecord& record) {
  switch (record.kind) {
    case ConfigurationKind::Bool:
      return std::get<bool>(record.defaultValue);
    case ConfigurationKind::Int:
      return std::get<std::int64_t>(record.defaultValue);
    case ConfigurationKind::Float:
      return std::get<double>(record.defaultValue);
    case ConfigurationKind::String:
      break;
  }
  return String(record.defaultText);
}

void StoreValue(const ConfigurationRecord& record, const ConfigurationValue& value) {
  std::visit([&]<typename T>(const T& typed) { *static_cast<T*>(record.variable) = typed; }, value);
}

std::string KindText(ConfigurationKind kind) {
  constexpr std::array<const char*, 4> kNames{"Bool", "Int", "Float", "String"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::string RangeText(const ConfigurationRecord& record) {
  constexpr ConfigurationRecord kUnbounded;
  if (record.kind != ConfigurationKind::Int ||
      (record.minimum == kUnbounded.minimum && record.maximum == kUnbounded.maximum))
    return {};
  return Format("@ to @", record.minimum, record.maximum).ToStdString();
}

std::string AcceptedText(const ConfigurationRecord& record) {
  constexpr std::array<const char*, 4> kTexts{"true or false", "a whole number", "a number",
                                              "a text"};
  std::string text = kTexts[static_cast<std::size_t>(record.kind)];
  if (const std::string range = RangeText(record); !range.empty()) text += " from " + range;
  return text;
}

std::string ValueText(const ConfigurationValue& value) {
  return std::visit([](const auto& typed) { return Format("@", typed).ToStdString(); }, value);
}

}  // namespace tarvo
