#include "toolkit/base/size_text.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace tarvo::toolkit {

std::string SizeText(std::uint64_t bytes) {
  constexpr std::array kUnits = {"B", "kB", "MB", "GB", "TB"};
  constexpr std::uint64_t kThousand = 1000;
  constexpr double kRoundedUp = 999.95;
  if (bytes < kThousand) return std::to_string(bytes) + " B";
  auto number = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; number >= kRoundedUp && unit + 1 < kUnits.size(); ++unit)
    number /= static_cast<double>(kThousand);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %s", number, kUnits[unit]);
  return text.data();
}

}  // namespace tarvo::toolkit
