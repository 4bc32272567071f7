#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "command/pack_progress.h"
#include "command/subcommand.h"
#include "tarvo/format.h"
#include "toolkit/base/build_name.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/pack_library.h"

namespace tarvo::command {
namespace {

constexpr SourceFile kPackCommand{"command/pack_command"};

constexpr const char* kPackFooter =
    R"(FILEs are ELF programs and libraries, PE files with their PDBs, dSYM bundles, separate
debug files and PDBs; folders, of which all of these is taken; and patterns. What is
named twice, or is a copy, is packed once.

Of an ELF file the debug sections are packed, from the file itself or from its
separate debug file. That is looked for by build id and debug link where debuggers
look, among the FILEs, and anywhere below the --debug-directory. What holds parts of
the debug information (.dwo, .dwp, files that dwz has made) is found in the same way and
packed with it; where a part is missing nothing is packed, for it would give wrong
answers.

The bundles are added to the archive of the build: those for the same module,
platform and processor take the place of older ones, which is said, all others stay.
So the jobs of several platforms pack into one archive, at once if they like; it
changes in one step. The same bundles give the same archive, byte for byte, whoever
came first.

A library's bundle has its shared name (SONAME) or else its file's name. A program's
is application.app.dsym, or kernel_app.app.dsym for kernel_app: the job of `tarvo run`
asks for all programs by these names, whatever they are called. Of several programs,
whichever was packed first, the --application has the name; without one a dSYM that
is called so, else the first in the alphabet, which is said. `tarvo resolve` finds
all others too, by the archive's tarvo-symbols.json.

Where a file that is named cannot be packed all such files are named, and the archive
stays as it is. Of folders what cannot be packed is named and left out.

Layouts:
  flat       DIR/BUILD_dsym.zip
  hierarchy  DIR/symbols/KEY/builds/BUILD_dsym.zip, KEY being the number in the
             build that the look-up searches for

The shared options and the exit statuses are those of `tarvo --help`.

Examples:
  tarvo pack --archives archives viewer
  tarvo pack --build R15.6-4213 --archives archives bin/scene lib/libscene.so.1
  tarvo pack --build R15.6-4213 --archives archives out/Release --debug-directory symbols
)";

constexpr const char* kFlat = "flat";
constexpr const char* kHierarchy = "hierarchy";

struct PackOptions {
  std::string build;
  std::string archives;
  std::string layout = kFlat;
  std::vector<std::string> debugDirectories{"/usr/lib/debug"};
  std::vector<std::string> files;
  std::string application;
  bool replaces = false;
};

std::string CheckBuild(const std::string& build) {
  if (IsBuildName(build)) return {};
  return "found \"" + SafeText(build) +
         "\", expected a name that files can have on all systems, like \"" +
         ProposedBuildName(build) + '"';
}

/// The bundles of all files; the reasons why there are not, and what is left out, go to standard
/// error.
Result<std::vector<Bundle>> FindAll(const PackLibrary& library, const PackOptions& options,
                                    PackProgress& progress) {
  FoundBundles found =
      library.findBundles(options.files, options.debugDirectories,
                          [&](const std::string& path) { progress.Show("Looking at " + path); });
  progress.Hide();
  for (const std::string& note : found.notes) std::fprintf(stderr, "tarvo: %s\n", note.c_str());
  for (const Error& error : found.errors) Fail(error);
  if (found.errors.empty() && !found.bundles.empty()) return std::move(found.bundles);
  return Error::Plain(kPackCommand.Here(),
                      options.build.empty()
                          ? String("Nothing was packed.")
                          : Format("Nothing was packed for \"@\".", SafeText(options.build)));
}

/// The build that is named, else the GNU build id of the one program that is packed: that is what
/// reports state of a program that names none.
Result<std::string> BuildFor(const PackOptions& options, const std::vector<Bundle>& bundles) {
  if (!options.build.empty()) return options.build;
  std::set<std::string> ids;
  for (const Bundle& bundle : bundles)
    if (bundle.facts.isExecutable && bundle.facts.platform == "linux")
      for (const SymbolSlice& slice : bundle.facts.slices) ids.insert(slice.id);
  if (ids.size() == 1 && !ids.begin()->empty()) return *ids.begin();
  return Error::Plain(kPackCommand.Here(),
                      Format("--build is required: found @ among the files, expected one, whose "
                             "GNU build id could be the build.",
                             ids.empty()       ? "no program for Linux"
                             : ids.size() == 1 ? "a program without a GNU build id"
                                               : "several programs for Linux"));
}

void PrintPacked(const std::string& path, const PackedArchive& packed) {
  for (const PackedBundle& bundle : packed.bundles) {
    const std::string replaced =
        bundle.replaced.empty() ? "" : ", in place of " + SafeText(bundle.replaced);
    std::printf("%s: %ju bytes from %s%s\n", SafeText(bundle.name).c_str(),
                static_cast<std::uintmax_t>(bundle.bytes), SafeText(bundle.source).c_str(),
                replaced.c_str());
  }
  for (const KeptBundle& kept : packed.kept)
    if (kept.bundle != kept.was)
      std::printf("%s: was %s\n", SafeText(kept.bundle).c_str(), SafeText(kept.was).c_str());
  if (!packed.applicants.empty())
    std::printf("%s: %s for %s, of %zu programs; --application NAME chooses another one\n",
                SafeText(packed.applicants.front().bundle).c_str(),
                SafeText(packed.applicants.front().module).c_str(),
                packed.applicants.front().platform.c_str(), packed.applicants.size());
  const std::string kept =
      packed.kept.empty() ? ""
                          : ", " + std::to_string(packed.kept.size()) + " of them there before";
  std::printf("%s: %ju bytes, bundles: %zu%s\n", SafeText(path).c_str(),
              static_cast<std::uintmax_t>(packed.bytes), packed.bundles.size() + packed.kept.size(),
              kept.c_str());
}

std::string Percents(const std::string& path, double part) {
  constexpr int kAll = 100;
  return path + ": " + std::to_string(static_cast<int>(kAll * part)) + " %";
}

int Pack(const PackOptions& options) {
  const auto library = PackLibrary::Load();
  if (!library) return Fail(library.GetError());
  PackProgress progress;
  auto bundles = FindAll(**library, options, progress);
  if (!bundles) return Fail(bundles.GetError());
  const auto build = BuildFor(options, *bundles);
  if (!build) return Fail(build.GetError(), kWrongUsage);
  const std::string path = (*library)->archivePath(
      options.archives, *build,
      options.layout == kHierarchy ? ArchiveLayout::Hierarchy : ArchiveLayout::Flat);
  auto packed = (*library)->writeArchive(
      path, *std::move(bundles),
      {.replaces = options.replaces,
       .application = options.application,
       .onProgress = [&](double part) { progress.Show(Percents(path, part)); }});
  progress.Hide();
  if (!packed) return Fail(packed.GetError());
  if (options.build.empty())
    std::printf("Build: %s, the GNU build id of the program\n", build->c_str());
  PrintPacked(path, *packed);
  return kDone;
}

}  // namespace

void FillPackCommand(Command& pack, Context& context) {
  pack.SetFooter(kPackFooter);
  auto options = std::make_shared<PackOptions>();
  pack.AddOption("--build", options->build,
                 "The build, as crash reports name it. Default: the\n"
                 "GNU build id of the program, as reports name it\n"
                 "that `tarvo exec` writes without --build")
      .Named("BUILD")
      .Check(CheckBuild);
  pack.AddOption("--archives", options->archives, "The directory of archives; made where need be")
      .Required()
      .Named("DIR");
  pack.AddOption("--layout", options->layout, "flat (the default) or hierarchy")
      .Named("LAYOUT")
      .OneOf({kFlat, kHierarchy});
  pack.AddOption("--debug-directory", options->debugDirectories,
                 "Look for separate debug files and parts of\n"
                 "debug information below this directory; may be\n"
                 "repeated. Default: /usr/lib/debug")
      .Named("DIR")
      .OneValueEachTime();
  pack.AddOption("--application", options->application,
                 "The program, by its file's name, that has the\n"
                 "name by which programs are looked up; remembered\n"
                 "in the archive")
      .Named("NAME");
  pack.AddFlag("--replace", options->replaces, "Write a new archive; an older one is not read");
  pack.AddOption("FILE", options->files, "Programs, libraries, debug files; folders of them")
      .Required();
  pack.OnNamed([&context, options] { context.action = [options] { return Pack(*options); }; });
}

}  // namespace tarvo::command
