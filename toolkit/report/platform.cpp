#include "toolkit/report/platform.h"

#include <algorithm>
#include <array>

#include "tarvo/crash_report.h"

namespace tarvo::report {

/// A report without an entry for the system is one of Linux, and read as if it had one.
std::string_view PlatformOf(const DataDictionary& crashLog) {
  namespace property = crash_report::property;
  struct Word {
    std::string_view word;
    std::string_view platform;
  };
  constexpr std::array kWords = {Word{"windows", "windows"}, Word{"linux", "linux"},
                                 Word{"mac", "macos"}, Word{"os x", "macos"},
                                 Word{"darwin", "macos"}};
  const auto* computer = crashLog.FindAs<DataDictionary>(property::kComputerInfo);
  const auto* system = computer == nullptr ? nullptr : computer->FindAs<String>(property::kOsType);
  if (system == nullptr) return {};
  const auto* const word = std::ranges::find_if(
      kWords, [&](const Word& known) { return system->ContainsIgnoringCase(known.word); });
  return word == kWords.end() ? std::string_view() : word->platform;
}

}  // namespace tarvo::report
