#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "command/subcommand.h"

namespace tarvo::command {
namespace {

constexpr const char* kConfigFooter =
    R"(Each entry is shown with its kind and accepted range, its declared default, its
value, and the source that the value comes from.

The shared options and the exit statuses are those of `tarvo --help`.

Example:
  tarvo config --g_crashReportUrl=/var/crash/report.txt
)";

/// A value on one line: texts in quotes, with control characters escaped.
std::string Shown(const ConfigurationEntry& entry, const std::string& value) {
  if (entry.kind != "String") return value;
  std::string shown = "\"";
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == 0x7f) {
      constexpr const char* kDigits = "0123456789abcdef";
      shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      if (c == '"' || c == '\\') shown += '\\';
      shown += c;
    }
  }
  return shown + '"';
}

void Print(const ConfigurationEntry& entry, std::size_t valueWidth) {
  const std::string kind = entry.kind + (entry.range.empty() ? "" : ", " + entry.range);
  std::printf("  %s\n      %s\n", entry.name.c_str(), entry.help.c_str());
  std::printf("      kind     %s\n", kind.c_str());
  std::printf("      default  %s\n", Shown(entry, entry.fallback).c_str());
  std::printf("      value    %-*s  (%s)\n", static_cast<int>(valueWidth),
              Shown(entry, entry.value).c_str(), entry.source.c_str());
}

int PrintEntries(Host& host) {
  /// The sources stand in one column unless a value is longer than this.
  constexpr std::size_t kWidestColumn = 40;
  const auto entries = host.ConfigurationEntries();
  std::size_t width = 0;
  for (const auto& entry : entries)
    if (const auto size = Shown(entry, entry.value).size(); size <= kWidestColumn)
      width = std::max(width, size);
  std::string owner;
  for (const auto& entry : entries) {
    if (entry.owner != owner) std::printf("%s%s\n", owner.empty() ? "" : "\n", entry.owner.c_str());
    owner = entry.owner;
    Print(entry, width);
  }
  return kDone;
}

int PrintNames(Host& host) {
  for (const auto& entry : host.ConfigurationEntries()) std::puts(entry.name.c_str());
  return kDone;
}

}  // namespace

void FillConfigCommand(Command& config, Context& context) {
  config.SetFooter(kConfigFooter);
  auto namesOnly = std::make_shared<bool>(false);
  config.AddFlag("--names", *namesOnly, "Print the entries' names only, one a line");
  config.OnNamed([&context, namesOnly] {
    context.action = [&context, namesOnly] {
      return WithHost(context, *namesOnly ? PrintNames : PrintEntries);
    };
  });
}

}  // namespace tarvo::command
