// Every format: the same answers as llvm-symbolizer for each byte of the text, with an index and
// without; offsets of every shape; and what is refused, with which words.

#include <algorithm>
#include <fstream>
#include <random>
#include <set>

#include "debug_files.h"
#include "files/image_range.h"
#include "support/files.h"
#include "support/program.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

/// Line of data/sample.cpp with "// mark: NAME".
std::int64_t MarkedLine(std::string_view name) {
  std::ifstream source(TEST_DATA "/sample.cpp");
  std::int64_t number = 1;
  for (std::string line; std::getline(source, line); ++number)
    if (line.ends_with("// mark: " + std::string(name))) return number;
  return 0;
}

/// What hexadecimal digits stand for.
std::string Bytes(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

class Formats : public testing::TestWithParam<Recipe> {};

TEST_P(Formats, AnswerLikeTheSymbolizer) {
  TARVO_MAKE_OR_SKIP(directory, GetParam());
  const auto expected = SymbolizerAnswers(directory, GetParam().file);
  ASSERT_GT(expected.size(), 150U);
  const TemporaryDirectory scratch;
  EXPECT_EQ(Answers(scratch / "indices", GetParam(), expected), expected) << "index made";
  EXPECT_EQ(Answers(scratch / "indices", GetParam(), expected), expected) << "index found";
  const auto indices = ListDirectory(scratch / "indices");
  EXPECT_EQ(indices.size(), GetParam().isIndexed ? 1U : 0U);
  for (const std::string& name : indices) EXPECT_TRUE(name.ends_with(".index")) << name;
  // An index cannot be kept below a file.
  WriteFile(scratch / "file", "");
  EXPECT_EQ(Answers(scratch / "file/below", GetParam(), expected), expected) << "no index";
}

TEST_P(Formats, KnowInlinedFunctionsTemplatesAndLocalClasses) {
  TARVO_MAKE_OR_SKIP(directory, GetParam());
  const TemporaryDirectory scratch;
  std::set<std::pair<std::string, std::int64_t>> found;
  std::ptrdiff_t longest = 0;
  for (const auto& [address, answer] :
       Answers(scratch / "indices", GetParam(), SymbolizerAnswers(directory, GetParam().file))) {
    if (answer.file.ends_with("sample.cpp"))
      found.emplace(answer.function.substr(0, answer.function.find('(')), answer.line);
    longest = std::max<std::ptrdiff_t>(longest, std::ranges::count(answer.callers, '<'));
  }
  EXPECT_GE(longest, 4) << "Twice < Thrice < operator() < Each < Deep";
  const bool isPdb = GetParam().name.starts_with("PePdb");
  for (const auto& [function, mark] :
       std::map<std::string, std::string>{{isPdb ? "Twice" : "shapes::Twice", "inlined"},
                                          {"shapes::Square::Area", "method"},
                                          {"Plain", "plain"}}) {
    const auto isMarked = [&](const auto& position) {
      return position.first.ends_with(function) && position.second == MarkedLine(mark);
    };
    EXPECT_TRUE(std::ranges::any_of(found, isMarked)) << function << ":" << MarkedLine(mark);
  }
}

TEST_P(Formats, TakeOffsetsOfEveryShape) {
  TARVO_MAKE_OR_SKIP(directory, GetParam());
  const auto addresses = SymbolizerAnswers(directory, GetParam().file);
  const auto& [address, expected] = *std::ranges::find_if(
      addresses, [](const auto& entry) { return entry.second.line == MarkedLine("plain"); });
  const TemporaryDirectory scratch;
  const auto host = StartHost(scratch / "indices");
  const auto reader = BindReader(*host);
  const std::uint64_t distance = address - GetParam().imageStart;
  for (const std::uint64_t offset :
       {address, distance, distance + kExecutableBias,
        GetParam().name.starts_with("Elf") ? address + kExecutableBias : address})
    EXPECT_EQ(Ask(reader, directory / GetParam().bundle, GetParam().architecture, offset), expected)
        << std::hex << offset;
  for (const std::uint64_t offset : {std::uint64_t{0x7fff12345678}, ~std::uint64_t{0}})
    EXPECT_TRUE(Ask(reader, directory / GetParam().bundle, GetParam().architecture, offset)
                    .error.contains("lies outside the image"));
}

TEST_P(Formats, RefuseAnotherArchitecture) {
  TARVO_MAKE_OR_SKIP(directory, GetParam());
  const TemporaryDirectory scratch;
  const auto host = StartHost(scratch / "indices");
  const bool isUniversal = GetParam().name == "MachOUniversal";
  const std::string other = isUniversal                           ? "i386"
                            : GetParam().architecture == "x86_64" ? "arm64"
                                                                  : "x86_64";
  const std::string error = Ask(BindReader(*host), directory / GetParam().bundle, other, 0).error;
  EXPECT_TRUE(error.contains("found")) << error;
  EXPECT_TRUE(error.ends_with("expected " + other + ".")) << error;
}

// The architecture counts where it is told, and the id.
TEST_P(Formats, FitTheModuleThatTheyAreLoadedFor) {
  TARVO_MAKE_OR_SKIP(directory, GetParam());
  const TemporaryDirectory scratch;
  const auto host = StartHost(scratch / "indices");
  const auto reader = BindReader(*host).chains;
  const Url file = Url::FromSystemPath((directory / GetParam().bundle).string());
  const bool isUniversal = GetParam().name == "MachOUniversal";
  const auto unstated = reader->Load({.file = file});
  EXPECT_EQ(static_cast<bool>(unstated), !isUniversal);
  if (isUniversal) {
    EXPECT_TRUE(
        unstated.GetError().Message().View().ends_with("expected one, or to be told which."));
  }
  const auto other = reader->Load(
      {.file = file, .architecture = GetParam().architecture, .id = "0123456789abcdef"});
  ASSERT_FALSE(other);
  EXPECT_TRUE(other.GetError().Message().View().contains("of another build"));
}

/// The checksums that frames in the sample have, of functions and of those that they are inlined
/// into.
std::set<std::string> SampleChecksums(const fs::path& indices, const Recipe& recipe,
                                      const fs::path& bundle,
                                      const std::map<std::uint64_t, Answer>& addresses) {
  const auto host = StartHost(indices);
  const auto reader = BindReader(*host).chains;
  EXPECT_TRUE(reader->Load(
      {.file = Url::FromSystemPath(bundle.string()), .architecture = recipe.architecture}));
  std::set<std::string> checksums;
  for (const auto& [address, ignored] : addresses) {
    const auto chain = reader->Resolve(address);
    for (const SourceFrame& frame : chain ? chain->frames : std::vector<SourceFrame>{})
      if (frame.sourceFile.View().ends_with("sample.cpp"))
        checksums.insert(frame.sourceFileChecksum.ToStdString());
  }
  return checksums;
}

// GCC 12 notes none, nor does clang in DWARF 4, as for Apple and MinGW; zeros, and a kind of
// another length, are none.
TEST_P(Formats, TellTheSourcesChecksum) {
  TARVO_MAKE_OR_SKIP(directory, GetParam());
  const bool isNoted = !GetParam().script.starts_with("g++") &&
                       !GetParam().name.starts_with("MachO") && GetParam().name != "PeDwarf";
  const std::string digits =
      RunProgram({"/usr/bin/md5sum", TEST_DATA "/sample.cpp"}).output.substr(0, 32);
  const std::set<std::string> expected = {isNoted ? "md5:" + digits : ""};
  const auto addresses = SymbolizerAnswers(directory, GetParam().file);
  const TemporaryDirectory scratch;
  const auto checksums = [&](const char* indices, const fs::path& folder) {
    return SampleChecksums(scratch / indices, GetParam(), folder / GetParam().bundle, addresses);
  };
  WriteFile(scratch / "file", "");
  for (const char* indices : {"indices", "indices", "file/below"})
    EXPECT_EQ(checksums(indices, directory), expected) << indices;
  if (!isNoted) return;
  const fs::path spoilt = scratch / "spoilt";
  fs::copy(directory, spoilt, fs::copy_options::recursive);
  for (const auto& entry : fs::recursive_directory_iterator(spoilt)) {
    if (!entry.is_regular_file()) continue;
    std::string bytes = ReadFile(entry.path());
    const std::string raw = Bytes(digits);
    for (auto at = bytes.find(raw); at != std::string::npos; at = bytes.find(raw, at + 1)) {
      if (GetParam().name.starts_with("PePdb"))
        bytes[at - 1] = 2;
      else
        bytes.replace(at, raw.size(), raw.size(), '\0');
    }
    WriteFile(entry.path(), bytes);
  }
  EXPECT_EQ(checksums("others", spoilt), std::set<std::string>{""});
}

// A damaged file may be refused, or be resolved as far as it goes; nothing else may happen.
TEST_P(Formats, SurviveDamage) {
  TARVO_MAKE_OR_SKIP(directory, GetParam());
  const TemporaryDirectory scratch;
  const bool isPdb = GetParam().name.starts_with("PePdb");
  const std::string file(isPdb ? "main.dsym/main.pdb"
                               : GetParam().file.substr(0, GetParam().file.find(' ')));
  const std::string whole = ReadFile(directory / file);
  // Some broken PDBs keep LLVM's reader busy for ever.
  const auto host = StartHost(scratch / "indices", {"--g_symbolIndexTime=1"});
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{100}, whole.size() / 4,
                                 whole.size() / 2, whole.size() * 7 / 8}) {
    const fs::path cut = scratch / ("cut" + std::to_string(size));
    WriteFile(cut, std::string_view(whole).substr(0, size));
    const std::string error = Ask(BindReader(*host), cut, GetParam().architecture, 0x1000).error;
    EXPECT_TRUE(error.contains(cut.string())) << error;
    EXPECT_TRUE(error.contains("expected")) << error;
  }
  std::mt19937 random(1);
  for (int round = 0; round < 8; ++round) {
    std::string bytes = whole;
    for (int i = 0; i < 20; ++i) bytes[random() % bytes.size()] ^= static_cast<char>(random());
    const fs::path broken = scratch / ("broken" + std::to_string(round));
    WriteFile(broken, bytes);
    for (const std::uint64_t offset : {0x1010UL, 0x1050UL, 0x100001010UL})
      (void)Ask(BindReader(*host), broken, GetParam().architecture, offset);
  }
}

INSTANTIATE_TEST_SUITE_P(All, Formats, testing::ValuesIn(kRecipes),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST(ImageAddress, IsTheFirstShapeThatFits) {
  constexpr ImageRange kLibrary{0, 0x9000};
  constexpr ImageRange kFixed{0x400000, 0x409000};
  constexpr ImageRange kExecutable{0x100000000, 0x100009000};
  constexpr ImageRange kMoved{0x200000000, 0x200009000};
  constexpr ImageRange kPe{0x140000000, 0x140009000};
  using enum ImageFormat;
  struct Case {
    ImageFormat format;
    ImageRange image;
    std::uint64_t offset;
    std::optional<std::uint64_t> address;
  };
  for (const Case& test : std::vector<Case>{
           {Elf, kLibrary, 0x10, 0x10},
           {Elf, kLibrary, 0x100000010, 0x10},
           {Elf, kFixed, 0x400010, 0x400010},
           {Elf, kFixed, 0x100400010, 0x400010},
           {Elf, kFixed, 0x10, 0x400010},
           {Elf, kFixed, 0x100000010, 0x400010},
           {MachO, kLibrary, 0x10, 0x10},
           {MachO, kExecutable, 0x100000010, 0x100000010},
           {MachO, kExecutable, 0x10, 0x100000010},
           {MachO, kMoved, 0x100000010, 0x200000010},
           {MachO, kMoved, 0x200000010, 0x200000010},
           {Pe, kPe, 0x10, 0x140000010},
           {Pe, kPe, 0x100000010, 0x140000010},
           {Pe, kPe, 0x140000010, 0x140000010},
           {Elf, kLibrary, 0x9000, std::nullopt},
           {MachO, kExecutable, 0x9000, std::nullopt},
           {Pe, kPe, 0x9000, std::nullopt},
           {Pe, kPe, 0xffffffffffffffff, std::nullopt},
       }) {
    EXPECT_EQ(ImageAddress(test.format, test.image, test.offset), test.address)
        << std::hex << test.offset;
  }
}

}  // namespace
}  // namespace tarvo::symbolreader
