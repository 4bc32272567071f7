// Which file of a bundle is read, and what is said of bundles that cannot be.

#include <sys/stat.h>

#include "debug_files.h"
#include "files/bundle.h"
#include "support/files.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kElf =
    "\x7f"
    "ELF, by its first bytes";
constexpr std::string_view kPe = "MZ, by its first bytes";
constexpr std::string_view kPdb = "Microsoft C/C++ MSF 7.00\r\n and so on";

TEST(Bundle, LeadsToOneDebugFileOrSaysWhyNot) {
  struct Case {
    std::string_view bundle;
    std::vector<std::pair<std::string_view, std::string_view>> files;
    std::string_view found;
    std::string_view error;
  };
  for (const Case& test : std::vector<Case>{
           {"a.dsym", {{"a.dsym", "anything"}}, "a.dsym", ""},
           {"a.dsym/", {{"a.dsym/x", kElf}, {"a.dsym/README", "text"}}, "a.dsym/x", ""},
           {"A.app.dSYM",
            {{"A.app.dSYM/Contents/Resources/DWARF/B", kElf},
             {"A.app.dSYM/Contents/Resources/DWARF/A", kElf}},
            "A.app.dSYM/Contents/Resources/DWARF/A",
            ""},
           {"libq.1.dylib.dSYM",
            {{"libq.1.dylib.dSYM/Contents/Resources/DWARF/libq.1.dylib", kElf},
             {"libq.1.dylib.dSYM/Contents/Resources/DWARF/libq", kElf}},
            "libq.1.dylib.dSYM/Contents/Resources/DWARF/libq.1.dylib",
            ""},
           {"application.app.dsym",
            {{"application.app.dsym/Contents/Resources/DWARF/Real Name", kElf},
             {"application.app.dsym/Contents/Info.plist", "text"}},
            "application.app.dsym/Contents/Resources/DWARF/Real Name",
            ""},
           {"m.dsym", {{"m.dsym/x.dll", kPe}, {"m.dsym/x.PDB", kPdb}}, "m.dsym/x.dll", ""},
           {"m.dsym", {{"m.dsym/x.pdb", kPdb}}, "m.dsym/x.pdb", ""},
           {"c.dsym", {}, "", "found nothing, expected a file or directory."},
           {"c.dsym",
            {{"c.dsym/x", "text"}},
            "",
            "found no debug file, expected Mach-O, ELF, PE or PDB."},
           {"c.dsym",
            {{"c.dsym/x", kElf}, {"c.dsym/y", kElf}},
            "",
            "found 2 debug files (x, y), expected one, or one named like the bundle."},
       }) {
    const TemporaryDirectory scratch;
    for (const auto& [path, bytes] : test.files) {
      fs::create_directories((scratch / path).parent_path());
      WriteFile(scratch / path, bytes);
    }
    const auto found = FindDebugFile(scratch / test.bundle);
    if (test.error.empty()) {
      ASSERT_TRUE(found) << found.GetError().Text().View();
      EXPECT_EQ(*found, (scratch / test.found).string());
      continue;
    }
    ASSERT_FALSE(found) << *found;
    EXPECT_EQ(found.GetError().ClassId(), Error::kFile);
    EXPECT_EQ(found.GetError().Message(), "The symbol bundle " + (scratch / test.bundle).string() +
                                              " cannot be read: " + std::string(test.error));
  }
}

TEST(Bundle, RefusesWhatIsNoDebugFileByName) {
  const Recipe& elf = RecipeNamed("ElfPie");
  const Recipe& pe = RecipeNamed("PePdb");
  TARVO_MAKE_OR_SKIP(elfDirectory, elf);
  TARVO_MAKE_OR_SKIP(peDirectory, pe);
  const TemporaryDirectory scratch;
  WriteFile(scratch / "random", std::string(5000, '\x5a'));
  ASSERT_EQ(mkfifo((scratch / "pipe").c_str(), 0600), 0);
  fs::copy(peDirectory / "main.dsym/main.exe", scratch / "lonely.exe");
  std::string other = ReadFile(peDirectory / "main.dsym/main.exe");
  other[other.find("RSDS") + 4] ^= 1;
  WriteFile(scratch / "other.exe", other);
  fs::copy(peDirectory / "main.dsym/main.pdb", scratch / "main.pdb");
  const std::string strip =
      "strip -g -o " + (scratch / "stripped").string() + " " + (elfDirectory / "main").string();
  ASSERT_EQ(std::system(strip.c_str()), 0);
  const auto host = StartHost(scratch / "indices");
  const auto reader = BindReader(*host);
  struct Case {
    std::string_view file;
    std::string_view architecture;
    std::string_view found;
    std::string_view expected;
  };
  for (const Case& test : std::initializer_list<Case>{
           {"random", "x86_64", "found another kind of file", "expected Mach-O, ELF, PE or PDB."},
           {"pipe", "x86_64", "Could not open", "Invalid argument."},
           {"stripped", "x86_64", "found none", "expected DWARF sections or a PDB."},
           {"main.pdb", "arm64", "found x86_64", "expected arm64."},
           {"other.exe", "x86_64", "found the signature", "expected "},
           {"random", "vax", "architecture \"vax\"", "expected one like x86_64 or arm64."}}) {
    const std::string error = Ask(reader, scratch / test.file, test.architecture, 0).error;
    EXPECT_TRUE(error.contains(test.found)) << error;
    EXPECT_TRUE(error.contains(test.expected)) << error;
  }
  fs::remove(scratch / "main.pdb");
  EXPECT_TRUE(
      Ask(BindReader(*host), scratch / "lonely.exe", "x86_64", 0).error.contains("main.pdb"));
  // A failed load leaves nothing loaded.
  String file;
  String function;
  std::int64_t line = 0;
  const auto resolved = reader.plain->Resolve(0x1000, file, line, function);
  ASSERT_FALSE(resolved);
  EXPECT_EQ(resolved.GetError().Message(), "No symbol bundle is loaded.");
}

TEST(Bundle, PdbAloneAnswersLikeItsImage) {
  const Recipe& recipe = RecipeNamed("PePdb");
  TARVO_MAKE_OR_SKIP(directory, recipe);
  const TemporaryDirectory scratch;
  const auto host = StartHost(scratch / "indices");
  const auto reader = BindReader(*host);
  for (const auto& [address, expected] : SymbolizerAnswers(directory, recipe.file)) {
    const Answer answer =
        Ask(reader, directory / "main.dsym/main.pdb", "x86_64", address - recipe.imageStart);
    const bool isKnown = !expected.function.empty();
    EXPECT_EQ(answer.error.empty() || isKnown ? answer : expected, expected);
  }
}

}  // namespace
}  // namespace tarvo::symbolreader
