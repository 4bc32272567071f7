#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "command/subcommand.h"
#include "tarvo/url.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/base/size_text.h"
#include "toolkit/resolve/user_cache.h"
#include "toolkit/store/prune.h"

namespace tarvo::command {
namespace {

constexpr const char* kPruneFooter =
    R"(Clears away what `tarvo resolve` makes anew where it is needed: unpacked archives, by
default in tarvo/builds in the user's cache directory, and indices of debug files, in
tarvo/symbols there (the entry g_symbolIndexDirectory); and what killed processes have
left of both. Try it with --dry-run first.

What was used longest ago goes first. What was used within the last hour stays, and
resolves may run meanwhile: each directory goes in one step.

The exit statuses are those of `tarvo --help`.

Example:
  tarvo prune --dry-run --unused 30 --size 20000
)";

struct PruneCommandOptions {
  std::string cache;
  std::string indices;
  std::size_t days = 30;
  std::optional<std::size_t> megabytes{};
  bool isDryRun = false;
};

/// The directory of indices of the user's cache, beside that of unpacked archives.
std::string IndicesBeside(const Url& builds) {
  return builds.IsEmpty() ? std::string()
                          : builds.Parent().Append("symbols").SystemPath().ToStdString();
}

int PruneDirectories(const PruneCommandOptions& options) {
  const Result<UserCache> own = MakeUserCache(false, true);
  if (!own && options.cache.empty()) return Fail(own.GetError());
  const Url builds = own ? own->builds : Url();
  const Pruned pruned =
      Prune({.cache = options.cache.empty() ? builds.SystemPath().ToStdString() : options.cache,
             .indices = options.indices.empty() && options.cache.empty() ? IndicesBeside(builds)
                                                                         : options.indices,
             .unused = std::chrono::hours(24) * static_cast<long>(options.days),
             .mostBytes = options.megabytes ? std::optional<std::uint64_t>(*options.megabytes *
                                                                           std::uint64_t{1'000'000})
                                            : std::nullopt,
             .isDryRun = options.isDryRun});
  int status = kDone;
  std::uint64_t bytes = 0;
  for (const PrunedItem& item : pruned.items) {
    std::printf("%8s  %s: %s%s\n", SizeText(item.bytes).c_str(), SafeText(item.path).c_str(),
                item.reason.c_str(),
                item.error.empty() ? "" : (", but it stays: " + item.error).c_str());
    if (!item.error.empty()) status = kFailed;
    if (item.error.empty()) bytes += item.bytes;
  }
  std::printf("%s: %s; kept: %s\n", options.isDryRun ? "Would clear" : "Cleared",
              SizeText(bytes).c_str(), SizeText(pruned.keptBytes).c_str());
  return status;
}

}  // namespace

void FillPruneCommand(Command& prune, Context& context) {
  prune.SetFooter(kPruneFooter);
  auto options = std::make_shared<PruneCommandOptions>();
  prune.AddOption("--cache", options->cache, "Unpacked archives, as for `tarvo resolve`")
      .Named("DIR");
  prune.AddOption("--indices", options->indices, "Indices, as of g_symbolIndexDirectory")
      .Named("DIR");
  prune
      .AddOption("--unused", options->days, "What was not used for so many days goes.\nDefault: 30")
      .Named("DAYS")
      .Within(0, 36500);
  prune
      .AddOption("--size", options->megabytes,
                 "What was used longest ago goes, until so many\nmegabytes are left")
      .Named("MB");
  prune.AddFlag("--dry-run", options->isDryRun, "Only say what would go");
  prune.OnNamed(
      [&context, options] { context.action = [options] { return PruneDirectories(*options); }; });
}

}  // namespace tarvo::command
