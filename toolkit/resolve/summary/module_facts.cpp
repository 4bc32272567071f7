#include "toolkit/resolve/summary/module_facts.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <system_error>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/report/platform.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

/// How names begin, in any case of the letters.
constexpr std::array<std::string_view, 5> kHandlerModules = {
    "crashhandler.so", "symbolreader.so", "libtarvo.so", "libtarvo-exec", "tarvo_exec.so"};

/// The libraries of the three systems and of their compilers.
constexpr std::array<std::string_view, 32> kSystemModules = {
    "libc.so",     "libc-2.",       "libc.musl",  "ld-linux",   "ld-musl",    "ld-2.",
    "libpthread",  "libm.so",       "libm-2.",    "libdl.so",   "librt.so",   "libstdc++",
    "libgcc_s",    "libc++",        "libunwind",  "linux-vdso", "linux-gate", "ntdll.",
    "kernel32.",   "kernelbase.",   "ucrtbase",   "msvcrt.",    "msvcp",      "vcruntime",
    "user32.",     "win32u.",       "libsystem_", "libSystem.", "libobjc.",   "libdyld.",
    "libdispatch", "corefoundation"};

/// Where systems keep their own files.
constexpr std::array<std::string_view, 9> kSystemFolders = {
    "/lib/",       "/lib64/",          "/lib32/",       "/usr/lib/",    "/usr/lib64/",
    "/usr/lib32/", "/System/Library/", "C:\\Windows\\", "/usr/libexec/"};

template <std::size_t kCount>
bool Begins(std::string_view text, const std::array<std::string_view, kCount>& starts) {
  return std::ranges::any_of(starts, [&](std::string_view start) {
    return String(text.substr(0, start.size())).EqualsIgnoringCase(start);
  });
}

std::string_view TextIn(const DataDictionary* dictionary, std::string_view key) {
  const String* text = dictionary == nullptr ? nullptr : dictionary->FindAs<String>(key);
  return text == nullptr ? std::string_view() : text->View();
}

bool IsExecutable(const DataDictionary& module) {
  const auto* isExecutable = module.FindAs<bool>(property::kIsExecutable);
  return isExecutable != nullptr && *isExecutable;
}

/// That of the application; what a report without one is taken for.
double VersionOf(const DataDictionary& crashLog) {
  const auto* info = crashLog.FindAs<DataDictionary>(property::kApplicationInfo);
  std::string_view text = TextIn(info, crash_report::key::kVersion);
  constexpr std::string_view kBlanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
  double version = 0;
  const auto [stop, status] = std::from_chars(text.data(), text.data() + text.size(), version);
  const bool isNumber = status == std::errc{} && stop == text.data() + text.size();
  return isNumber && version != 0 ? version : symbol_archive::kApplicationNameVersion;
}

}  // namespace

ModuleOwner OwnerOf(std::string_view name, std::string_view path, std::string_view build) {
  if (Begins(name, kHandlerModules)) return ModuleOwner::CrashHandler;
  if (!build.empty()) return ModuleOwner::Application;
  return Begins(path, kSystemFolders) || Begins(name, kSystemModules) ? ModuleOwner::System
                                                                      : ModuleOwner::Application;
}

ModuleFacts::ModuleFacts(const DataDictionary& crashLog)
    : platform_(report::PlatformOf(crashLog)), version_(VersionOf(crashLog)) {
  const auto* modules = crashLog.FindAs<DataArray>(property::kLoadedModules);
  if (modules != nullptr) modules_ = *modules;
}

ModuleFacts::Fact ModuleFacts::Of(const String& module) {
  if (places_.empty())
    for (std::size_t i = 0; i < modules_.Size(); ++i)
      places_.try_emplace(TextIn(modules_[i].As<DataDictionary>(), property::kModuleName), i);
  const auto place = places_.find(module.View());
  const auto* listed =
      place == places_.end() ? nullptr : modules_[place->second].As<DataDictionary>();
  const ModuleOwner owner = OwnerOf(module, TextIn(listed, crash_report::key::kExecutable),
                                    TextIn(listed, property::kBuild));
  if (listed == nullptr) return {{}, owner};
  const std::string_view name =
      IsExecutable(*listed) ? symbol_archive::ProgramName(module, version_) : module.View();
  return {Format("@@", name, symbol_archive::kBundleSuffix), owner};
}

}  // namespace tarvo::toolkit
