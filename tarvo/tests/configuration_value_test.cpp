#include "configuration/configuration_value.h"

#include <gtest/gtest.h>

#include <limits>

namespace tarvo {
namespace {

constexpr std::int64_t kMinimum = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMaximum = std::numeric_limits<std::int64_t>::max();

TEST(ConfigurationValue, AcceptsWholeTextsOfItsKindOnly) {
  using enum ConfigurationKind;
  const ConfigurationRecord truth{.kind = Bool};
  const ConfigurationRecord level{.kind = Int, .minimum = 0, .maximum = 2};
  const ConfigurationRecord whole{.kind = Int};
  const ConfigurationRecord number{.kind = Float};
  const ConfigurationRecord text{.kind = String};
  const struct {
    const ConfigurationRecord& record;
    std::string text;
    const char* expected;  ///< null: refused
  } kCases[] = {
      {truth, "true", "true"},
      {truth, "OFF", "false"},
      {truth, "1", "true"},
      {truth, "", nullptr},
      {truth, "2", nullptr},
      {truth, "true ", nullptr},
      {level, "2", "2"},
      {level, "0", "0"},
      {level, "3", nullptr},
      {level, "-1", nullptr},
      {level, "1.0", nullptr},
      {level, "1x", nullptr},
      {level, " 1", nullptr},
      {level, "0x1", nullptr},
      {level, "", nullptr},
      {whole, std::to_string(kMinimum), "-9223372036854775808"},
      {whole, std::to_string(kMaximum), "9223372036854775807"},
      {whole, "9223372036854775808", nullptr},
      {number, "-1.5e3", "-1500"},
      {number, "7", "7"},
      {number, "1e999", nullptr},
      {number, "inf", nullptr},
      {number, "nan", nullptr},
      {number, "0.5,", nullptr},
      {text, "", ""},
      {text, " a = b ", " a = b "},
  };
  for (const auto& [record, input, expected] : kCases) {
    const auto value = ParseValue(record, input);
    EXPECT_EQ(value.has_value(), expected != nullptr) << input;
    if (value && expected != nullptr) {
      EXPECT_EQ(ValueText(*value), expected);
    }
  }
}

}  // namespace
}  // namespace tarvo
