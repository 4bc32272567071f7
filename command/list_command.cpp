#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "command/subcommand.h"
#include "json/json_writer.h"
#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/base/size_text.h"
#include "toolkit/pack/pack_library.h"
#include "toolkit/store/archive_tree.h"

namespace tarvo::command {
namespace {

constexpr const char* kListFooter =
    R"(Below each DIR every archive of a build is listed: the build, the day of its last
change, its size, the systems and processors that it serves (by its own list; "?" where
it has none), and its file. The document has the bundles too.

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
    if (entry.slices.empty()) listed.systems.insert(entry.platform.empty() ? "?" : entry.platform);
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

/// One line an archive, in columns, and how many these are.
void Print(const std::vector<ListedArchive>& archives) {
  std::size_t width = 0;
  std::uint64_t bytes = 0;
  for (const ListedArchive& listed : archives) {
    width = std::max(width, TextWidth(SafeText(listed.build)));
    bytes += listed.bytes;
  }
  for (const ListedArchive& listed : archives) {
    const std::string build = SafeText(listed.build);
    std::printf("%s%*s  %s  %8s  %s  %s\n", build.c_str(),
                static_cast<int>(width - TextWidth(build)), "", listed.day.c_str(),
                SizeText(listed.bytes).c_str(),
                SafeText(listed.problem.empty() ? Joined(listed.systems) : listed.problem).c_str(),
                SafeText(listed.file).c_str());
  }
  std::printf("Archives: %zu, %s\n", archives.size(), SizeText(bytes).c_str());
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
  for (const std::string& directory : options.directories) {
    std::error_code error;
    if (!std::filesystem::is_directory(directory, error))
      return Fail(Error::Plain({}, Format("The archive directory \"@\" is no directory.",
                                          SafeText(directory))),
                  kWrongUsage);
    directories.push_back(Url::FromSystemPath(directory));
  }
  ArchiveTree tree(std::move(directories));
  std::vector<ListedArchive> archives;
  for (const std::string& build : tree.Builds())
    for (const std::string& file : tree.FilesOf(build))
      archives.push_back(Look(**library, build, file));
  if (options.isJson) {
    DataArray documents;
    for (const ListedArchive& listed : archives) documents.Append(DocumentOf(listed));
    DataDictionary document;
    document.Set("Archives", std::move(documents));
    std::fputs(JsonDocument(document).c_str(), stdout);
  } else {
    Print(archives);
  }
  const bool isWhole = std::ranges::all_of(
      archives, [](const ListedArchive& listed) { return listed.problem.empty(); });
  return isWhole ? kDone : kFailed;
}

}  // namespace

void FillListCommand(Command& list, Context& context) {
  list.SetFooter(kListFooter);
  auto options = std::make_shared<ListOptions>();
  list.AddFlag("--json", options->isJson, "Print a document for programs");
  list.AddOption("DIR", options->directories, "Directories of archives").Required();
  list.OnNamed([&context, options] { context.action = [options] { return List(*options); }; });
}

}  // namespace tarvo::command
