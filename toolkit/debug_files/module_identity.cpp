#include "toolkit/debug_files/module_identity.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/report/platform.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;
namespace variable = crash_report::variable;

/// The longest GNU build id that is believed, in bytes; linkers make 8, 16 or 20.
constexpr std::size_t kLongestId = 64;

std::string_view TextIn(const DataDictionary& dictionary, std::string_view key) {
  const auto* text = dictionary.FindAs<String>(key);
  return text == nullptr ? std::string_view() : text->View();
}

/// The variables of the thread that has the capture's: the first one with the time of the crash.
const DataDictionary* CapturedVariables(const DataDictionary& crashLog) {
  const auto* threads = crashLog.FindAs<DataArray>(property::kThreads);
  if (threads == nullptr) return nullptr;
  for (const DataValue& element : *threads) {
    const auto* thread = element.As<DataDictionary>();
    const auto* variables =
        thread == nullptr ? nullptr : thread->FindAs<DataDictionary>(property::kProperties);
    if (variables != nullptr && variables->Find(variable::kCrashTime) != nullptr) return variables;
  }
  return nullptr;
}

bool IsId(std::string_view text) {
  return text.size() >= 4 && text.size() <= 2 * kLongestId && text.size() % 2 == 0 &&
         text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string Path(std::string_view text) {
  const bool isPath = text.starts_with('/') && text.find('\0') == std::string_view::npos;
  return std::string(isPath ? text : std::string_view());
}

/// From "2026-11-21T13:09:40Z".
std::optional<std::int64_t> Time(std::string_view text) {
  std::tm time{};
  const char* end = strptime(std::string(text).c_str(), "%Y-%m-%dT%H:%M:%SZ", &time);
  return end == nullptr ? std::nullopt : std::optional<std::int64_t>(timegm(&time));
}

bool IsProgram(const DataDictionary& module) {
  const auto* isExecutable = module.FindAs<bool>(property::kIsExecutable);
  return isExecutable != nullptr && *isExecutable;
}

}  // namespace

ModuleIdentity Identify(const ModuleQuery& query) {
  ModuleIdentity identity;
  identity.platform = report::PlatformOf(query.crashLog);
  identity.isExecutable = IsProgram(query.module);
  identity.name = TextIn(query.module, property::kModuleName);
  identity.path = Path(TextIn(query.module, crash_report::key::kExecutable));
  const DataDictionary* variables = CapturedVariables(query.crashLog);
  if (variables == nullptr) return identity;
  identity.crashTime = Time(TextIn(*variables, variable::kCrashTime));
  if (identity.path.empty() && IsProgram(query.module))
    identity.path = Path(TextIn(*variables, variable::kProgramFile));
  if (const auto* base = query.module.FindAs<std::uint64_t>(property::kBaseAddress)) {
    const std::string_view id =
        TextIn(*variables, Format("@0x@{x}", variable::kBuildIdPrefix, *base).View());
    if (IsId(id)) identity.id = id;
  }
  return identity;
}

}  // namespace tarvo::toolkit
