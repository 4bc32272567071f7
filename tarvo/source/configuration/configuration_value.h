#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tarvo/configuration.h"

namespace tarvo {

/// A value of an entry, by its kind.
using ConfigurationValue = std::variant<bool, std::int64_t, double, String>;

/// Reads a value from text. The whole text must be the value: "true", "yes", "on", "1" and their
/// opposites in any case for Bool, a decimal number for Int and Float (finite). Nothing when it is
/// none of the kind, or an Int outside the range.
[[nodiscard]] std::optional<ConfigurationValue> ParseValue(const ConfigurationRecord& record,
                                                           std::string_view text);

/// The value if the entry accepts it: of its kind (a whole number is a Float too) and in its range.
[[nodiscard]] std::optional<ConfigurationValue> AcceptValue(const ConfigurationRecord& record,
                                                            ConfigurationValue value);

[[nodiscard]] ConfigurationValue DefaultValue(const ConfigurationRecord& record);

/// Gives the value, which AcceptValue must have accepted, to the entry's variable.
void StoreValue(const ConfigurationRecord& record, const ConfigurationValue& value);

// --- Texts for people ----------------------------------------------------------------------------

[[nodiscard]] std::string KindText(ConfigurationKind kind);
/// "0 to 2"; empty when the range is the kind's own.
[[nodiscard]] std::string RangeText(const ConfigurationRecord& record);
/// What the entry accepts: "a whole number from 0 to 2".
[[nodiscard]] std::string AcceptedText(const ConfigurationRecord& record);
[[nodiscard]] std::string ValueText(const ConfigurationValue& value);

}  // namespace tarvo
