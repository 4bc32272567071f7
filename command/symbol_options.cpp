#include "command/symbol_options.h"

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

#include "toolkit/report/report_resolver.h"
#include "toolkit/resolve/running/progress.h"
#include "toolkit/resolve/running/report_work.h"
#include "toolkit/resolve/user_cache.h"

namespace tarvo::command {
namespace {

/// The directory of an option or, without it, of a configuration entry; empty where neither is set.
Result<Url> Directory(const Host& host, const std::string& option, std::string_view entryName) {
  if (!option.empty()) return Url::FromSystemPath(option);
  for (const ConfigurationEntry& entry : host.ConfigurationEntries())
    if (entry.name == entryName) return Url::FromText(entry.value);
  return Url();
}

}  // namespace

SymbolOptions::SymbolOptions() : jobs(std::max(1U, std::thread::hardware_concurrency())) {}

void AddSymbolOptions(Command& command, SymbolOptions& options) {
  command
      .AddOption(
          "--archives", options.archives,
          "Symbol archives, in this directory and below; may\nbe given several times, searched "
          "in this order.\nDefault: the entry g_symbolArchiveDirectory, else\nnone")
      .Named("DIR")
      .OneValueEachTime();
  command.AddOption("--build", options.build, "The build of reports that state none")
      .Named("BUILD");
  command
      .AddOption("--cache", options.cache,
                 "Unpacked archives; made where missing.\nDefault: the entry "
                 "g_symbolTemporaryDirectory,\nelse tarvo/builds in the user's cache directory")
      .Named("DIR");
  const Option directories = command.AddOption(
      "--debug-directory", options.debugDirectories,
      "Debug files of the system, as distributions\nlay them out; may be given several "
      "times.\nDefault: /usr/lib/debug");
  directories.Named("DIR").OneValueEachTime();
  command
      .AddFlag(
          "--archives-only", options.archivesOnly,
          "Take symbols from the archives and from\nnowhere else: what comes of a report is the "
          "same\non every machine")
      .Excludes(directories);
  command
      .AddOption("--jobs", options.jobs, "Reports to resolve at once. Default: one\nfor each core")
      .Named("N")
      .Within(1, 256);
}

std::vector<Url> ArchiveDirectories(const Host& host, const SymbolOptions& options) {
  std::vector<Url> directories;
  for (const std::string& directory : options.archives)
    directories.push_back(Url::FromSystemPath(directory));
  const Result<Url> entry = Directory(host, {}, "g_symbolArchiveDirectory");
  if (directories.empty() && entry && !entry->IsEmpty()) directories.push_back(*entry);
  return directories;
}

Result<report::ResolveOptions> ResolverSettings(Host& host, const SymbolOptions& options) {
  const std::string first = options.archives.empty() ? "" : options.archives.front();
  const Result<Url> archives = Directory(host, first, "g_symbolArchiveDirectory");
  if (!archives) return archives.GetError();
  for (const Url& directory : ArchiveDirectories(host, options)) {
    const auto prepared =
        report::PrepareDirectories(host.Services().Files(), {.archives = directory});
    if (!prepared) return prepared.GetError();
  }
  const Result<Url> cache = Directory(host, options.cache, "g_symbolTemporaryDirectory");
  if (!cache) return cache.GetError();
  const Result<UserCache> own = MakeUserCache(archives->IsEmpty(), cache->IsEmpty());
  if (!own) return own.GetError();
  const report::ResolveOptions settings{archives->IsEmpty() ? own->noArchives : *archives,
                                        cache->IsEmpty() ? own->builds : *cache, options.adjustment,
                                        !options.isStrict};
  if (auto prepared = report::PrepareDirectories(host.Services().Files(), settings); !prepared)
    return prepared.GetError();
  return settings;
}

DebugFileOptions DebugFiles(const SymbolOptions& options) {
  DebugFileOptions files{.build = options.build, .archivesOnly = options.archivesOnly};
  if (!options.debugDirectories.empty()) files.directories = options.debugDirectories;
  files.onActivity = ShowActivity;
  files.onMissed = NoteMissed;
  return files;
}

HostOptions ResolvingHost(HostOptions host, const SymbolOptions& options) {
  host.components.push_back(ReportWorkComponent());
  host.components.push_back(DebugFileComponent(DebugFiles(options)));
  host.arguments.insert(host.arguments.begin(), "--g_crashlogResolveDiagnosticOutput=0");
  return host;
}

ArchivesInUse::ArchivesInUse(Framework& framework, ArchiveCache& cache) : framework_(framework) {
  LookIntoArchives(framework_, &cache);
  RetireOutdatedIn(&cache);
}

ArchivesInUse::~ArchivesInUse() {
  RetireOutdatedIn(nullptr);
  LookIntoArchives(framework_, nullptr);
}

}  // namespace tarvo::command
