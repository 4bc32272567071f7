#include "crashlog/resolving/application_info.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "crashlog/base/property_names.h"
#include "crashlog/base/text.h"
#include "tarvo/crash_report.h"
#include "tarvo/symbol_archive.h"

namespace tarvo::crashhandler {
namespace {

constexpr double kBundleVersion = 15.6;  ///< also what a report without a version is taken for
constexpr std::uint64_t kPreferredLoadAddress = 0x100000000;

constexpr std::array<std::string_view, 5> kEditions = {"SCHOLAR", "PEBBLE", "TIMBER", "HARBOR NODE",
                                                       "FEATHER"};

std::string_view InfoText(const DataDictionary& crashLog, std::string_view key) {
  const auto* info = crashLog.FindAs<DataDictionary>(property::kApplicationInfo);
  const String* text = info == nullptr ? nullptr : info->FindAs<String>(key);
  return text == nullptr ? std::string_view() : text->View();
}

std::optional<double> ToFloat(std::string_view text) {
  const std::string_view digits = Trim(text);
  const char* end = digits.data() + digits.size();
  double number = 0;
  const auto [stop, status] = std::from_chars(digits.data(), end, number);
  if (status != std::errc{} || stop != end) return std::nullopt;
  return number;
}

}  // namespace

double ApplicationVersion(const DataDictionary& crashLog) {
  const double version = ToFloat(InfoText(crashLog, crash_report::key::kVersion)).value_or(0);
  return version == 0 ? kBundleVersion : version;
}

String StatedArchitecture(const DataDictionary& crashLog) {
  return String(InfoText(crashLog, crash_report::key::kArchitecture));
}

String ApplicationArchitecture(const DataDictionary& crashLog) {
  String architecture = StatedArchitecture(crashLog);
  return architecture.IsEmpty() ? "x86_64"_text : architecture;
}

void ApplicationBundleName(const DataDictionary& crashLog, String& moduleName,
                           std::uint64_t& baseAddress) {
  if (ApplicationVersion(crashLog) >= kBundleVersion) {
    moduleName = String::Literal(moduleName == symbol_archive::kKernelName
                                     ? symbol_archive::kKernelApplicationName
                                     : symbol_archive::kApplicationName);
    baseAddress -= kPreferredLoadAddress;
    return;
  }
  const bool isEdition = std::ranges::any_of(
      kEditions, [&](std::string_view word) { return moduleName.ContainsIgnoringCase(word); });
  moduleName = isEdition ? "Pallado Pebble.app"_text : "Pallado.app"_text;
  baseAddress = 0;
}

}  // namespace tarvo::crashhandler
