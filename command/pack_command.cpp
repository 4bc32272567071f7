#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "command/subcommand.h"
#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/pack_library.h"

namespace tarvo::command {
namespace {

constexpr SourceFile kPackCommand{"command/pack_command"};

constexpr const char* kPackFooter =
    R"(Of an ELF file the debug sections are packed, from the file itself or from its
separate debug file, which is looked for by build id and debug link where
debuggers look. A library's bundle has its shared name (SONAME) or else its
file's name; a program's is application.app.dsym, or kernel_app.app.dsym for the
file name kernel_app. A dSYM bundle is packed as it is. Where a file cannot be
packed all such files are named, and no archive is made.

An older archive of the build is replaced in one step. The same files give the
same archive, byte for byte.

Layouts:
  flat       DIR/BUILD_dsym.zip
  hierarchy  DIR/symbols/KEY/builds/BUILD_dsym.zip, KEY being the number in the
             build that the look-up searches for

The shared options and the exit statuses are those of `tarvo --help`.

Example:
  tarvo pack --build R15.6-4213 --archives archives bin/scene lib/libscene.so.1
)";

constexpr const char* kFlat = "flat";
constexpr const char* kHierarchy = "hierarchy";

struct PackOptions {
  std::string build;
  std::string archives;
  std::string layout = kFlat;
  std::vector<std::string> debugDirectories{"/usr/lib/debug"};
  std::vector<std::string> files;
};

std::string CheckBuild(const std::string& build) {
  const bool isPlainName =
      !build.empty() && build != "." && build != ".." && build.find('/') == std::string::npos;
  return isPlainName ? "" : "found \"" + SafeText(build) + "\", expected a plain file name";
}

/// The look-up would find but one of two bundles whose names differ in the suffix's letters.
std::string_view ModuleOf(const Bundle& bundle) {
  return std::string_view(bundle.name)
      .substr(0, bundle.name.size() - symbol_archive::kBundleSuffix.size());
}

/// The bundles of all files, sorted by name; the reasons why there are not go to standard error.
Result<std::vector<Bundle>> FindBundles(const PackLibrary& library, const PackOptions& options) {
  std::vector<Bundle> bundles;
  std::size_t refused = 0;
  const auto refuse = [&](const Error& error) { refused += Fail(error) == kFailed; };
  for (const std::string& file : options.files) {
    auto bundle = library.findBundle(file, options.debugDirectories);
    if (bundle) {
      bundles.push_back(*std::move(bundle));
    } else {
      refuse(bundle.GetError());
    }
  }
  std::ranges::sort(bundles, {}, [](const Bundle& bundle) {
    return std::pair(ModuleOf(bundle), std::string_view(bundle.given));
  });
  for (std::size_t i = 1; i < bundles.size(); ++i)
    if (ModuleOf(bundles[i - 1]) == ModuleOf(bundles[i]))
      refuse(Error::Plain(kPackCommand.Here(),
                          Format("Cannot pack both \"@\" and \"@\": they are @ in the archive.",
                                 SafeText(bundles[i - 1].given), SafeText(bundles[i].given),
                                 SafeText(bundles[i].name))));
  if (refused == 0) return bundles;
  return Error::Plain(kPackCommand.Here(),
                      Format("No archive was made for \"@\".", SafeText(options.build)));
}

int Pack(const PackOptions& options) {
  const auto library = PackLibrary::Load();
  if (!library) return Fail(library.GetError());
  const auto bundles = FindBundles(**library, options);
  if (!bundles) return Fail(bundles.GetError());
  const std::string path = (*library)->archivePath(
      options.archives, options.build,
      options.layout == kHierarchy ? ArchiveLayout::Hierarchy : ArchiveLayout::Flat);
  const auto packed = (*library)->writeArchive(path, *bundles);
  if (!packed) return Fail(packed.GetError());
  for (const PackedBundle& bundle : packed->bundles)
    std::printf("%s: %ju bytes from %s\n", SafeText(bundle.name).c_str(),
                static_cast<std::uintmax_t>(bundle.bytes), SafeText(bundle.source).c_str());
  std::printf("%s: %ju bytes\n", SafeText(path).c_str(),
              static_cast<std::uintmax_t>(packed->bytes));
  return kDone;
}

}  // namespace

void AddPackCommand(Program& program, Context& context) {
  Command pack = program.AddSubcommand("pack", "Make the symbol archive of a build");
  pack.SetFooter(kPackFooter);
  auto options = std::make_shared<PackOptions>();
  pack.AddOption("--build", options->build, "The build, as crash reports name it")
      .Required()
      .Named("BUILD")
      .Check(CheckBuild);
  pack.AddOption("--archives", options->archives, "The directory of archives; made where need be")
      .Required()
      .Named("DIR");
  pack.AddOption("--layout", options->layout, "flat (the default) or hierarchy")
      .Named("LAYOUT")
      .OneOf({kFlat, kHierarchy});
  pack.AddOption("--debug-directory", options->debugDirectories,
                 "Look for separate debug files below this\n"
                 "directory; may be repeated. Default:\n"
                 "/usr/lib/debug")
      .Named("DIR")
      .OneValueEachTime();
  pack.AddOption("FILE", options->files, "ELF programs and libraries, and dSYM bundles").Required();
  pack.OnNamed([&context, options] { context.action = [options] { return Pack(*options); }; });
}

}  // namespace tarvo::command
