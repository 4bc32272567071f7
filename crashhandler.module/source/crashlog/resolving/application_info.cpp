#include "crashlog/resolving/application_info.h"

#include <charconv>
#include <optional>

#include "crashlog/base/property_names.h"
#include "crashlog/base/text.h"
#include "tarvo/crash_report.h"
#include "tarvo/symbol_archive.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::uint64_t kPreferredLoadAddress = 0x100000000;

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
  return version == 0 ? symbol_archive::kApplicationNameVersion : version;
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
  const double version = ApplicationVersion(crashLog);
  const bool isSlid = version >= symbol_archive::kApplicationNameVersion;
  baseAddress = isSlid ? baseAddress - kPreferredLoadAddress : 0;
  moduleName = String::Literal(symbol_archive::ProgramName(moduleName, version));
}

}  // namespace tarvo::crashhandler
