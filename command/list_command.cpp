#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "command/subcommand.h"
#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/pack_library.h"
#include "toolkit/store/archive_tree.h"
#include "toolkit/store/json_text.h"

namespace tarvo::command {
namespace {

constexpr const char* kListFooter =
    R"(Below each DIR every archive of a build is listed with its size, the day of its last
change, the systems and processors that it serves (by its own list; "?" where it has
none), and its bundles.

The exit statuses are those of `tarvo --help`; 1 also where an archive is not whole.
)";

struct ListOptions {
  std::vector<std::string> directories;
  bool isJson = false;
};

struct ListedArchive {
  std::string build;
  std::string file;
  std::uint64_t bytes = 0;
  std::string day;
  std::set<std::string> systems;
  std::vector<std::string> bundles;
  std::string problem;
};

ListedArchive Look(const PackLibrary& library, const std::string& build, const std::string& file) {
  ListedArchive listed{build, file, 0, {}, {}, {}, {}};
  struct stat status{};
  if (stat(file.c_str(), &status) == 0) {
    listed.bytes = static_cast<std::uint64_t>(status.st_size);
    std::tm parts{};
    char day[16];
    if (gmtime_r(&status.st_mtime, &parts) != nullptr)
      listed.day.assign(day, std::strftime(day, sizeof day, "%Y-%m-%d", &parts));
  }
  const auto manifest = library.readManifest(file);
  if (!manifest) {
    listed.problem = "no whole archive";
    return listed;
  }
  for (const ManifestEntry& entry : *manifest) {
    listed.bundles.push_back(entry.bundle);
    if (entry.platform.empty()) listed.systems.insert("?");
    for (const SymbolSlice& slice : entry.slices)
      listed.systems.insert(entry.platform + ' ' + slice.architecture);
  }
  return listed;
}

std::string Joined(const auto& texts) {
  std::string text;
  for (const std::string& part : texts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

void Print(const ListedArchive& listed) {
  constexpr double kMegabyte = 1e6;
  std::printf(
      "%s  %10.1f MB  %s  %s  %s\n", listed.day.c_str(),
      static_cast<double>(listed.bytes) / kMegabyte, SafeText(listed.build).c_str(),
      listed.problem.empty() ? SafeText(Joined(listed.systems)).c_str() : listed.problem.c_str(),
      SafeText(listed.file).c_str());
}

DataDictionary DocumentOf(const ListedArchive& listed) {
  const auto array = [](const auto& texts) {
    DataArray values;
    for (const std::string& text : texts) values.Append(String(text));
    return values;
  };
  DataDictionary document;
  document.Set("Build", String(listed.build));
  document.Set("File", String(listed.file));
  document.Set("Size", listed.bytes);
  document.Set("Day", String(listed.day));
  document.Set("Systems", array(listed.systems));
  document.Set("Bundles", array(listed.bundles));
  if (!listed.problem.empty()) document.Set("Problem", String(listed.problem));
  return document;
}

int List(const ListOptions& options) {
  const auto library = PackLibrary::Load();
  if (!library) return Fail(library.GetError());
  std::vector<Url> directories;
  for (const std::string& directory : options.directories)
    directories.push_back(Url::FromSystemPath(directory));
  ArchiveTree tree(std::move(directories));
  int status = kDone;
  DataArray archives;
  for (const std::string& build : tree.Builds()) {
    for (const std::string& file : tree.FilesOf(build)) {
      const ListedArchive listed = Look(**library, build, file);
      if (!listed.problem.empty()) status = kFailed;
      if (options.isJson) {
        archives.Append(DocumentOf(listed));
      } else {
        Print(listed);
      }
    }
  }
  if (options.isJson) {
    DataDictionary document;
    document.Set("Archives", std::move(archives));
    std::fputs(JsonText(document).c_str(), stdout);
  }
  return status;
}

}  // namespace

void AddListCommand(Program& program, Context& context) {
  Command list = program.AddSubcommand("list", "List the archives of symbols in directories");
  list.SetFooter(kListFooter);
  auto options = std::make_shared<ListOptions>();
  list.AddFlag("--json", options->isJson, "Print a document for programs");
  list.AddOption("DIR", options->directories, "Directories of archives").Required();
  list.OnNamed([&context, options] { context.action = [options] { return List(*options); }; });
}

}  // namespace tarvo::command
