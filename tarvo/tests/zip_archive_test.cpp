#include "archive/zip_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <map>
#include <ostream>
#include <random>
#include <thread>

#include "support/files.h"
#include "support/zip_builder.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;

Url ToUrl(const fs::path& path) { return Url::FromSystemPath(path.string()); }

Result<void> Extract(const fs::path& archive, const fs::path& directory,
                     const ArchiveLimits& limits = {}) {
  const Ref<ReadArchive> reader = CreateZipArchive(limits);
  if (auto opened = reader->Open(ToUrl(archive)); !opened) return opened;
  return reader->Extract(ToUrl(directory));
}

std::string TextOf(const Result<void>& result) {
  return result ? "" : result.GetError().Text().ToStdString();
}

void WriteFile(const fs::path& file, std::string_view content) {
  std::ofstream(file, std::ios::binary) << content;
}

/// Every path below `directory` with what it is: the permissions and content of a file, "/" for a
/// directory, "-> TARGET" for a link.
std::map<std::string, std::string> TreeOf(const fs::path& directory) {
  std::map<std::string, std::string> tree;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    std::string& what = tree[entry.path().lexically_relative(directory)];
    if (entry.is_symlink()) {
      what = "-> " + fs::read_symlink(entry.path()).string();
    } else if (entry.is_directory()) {
      what = "/";
    } else {
      struct stat status{};
      stat(entry.path().c_str(), &status);
      std::ifstream file(entry.path(), std::ios::binary);
      what = Format("@ ", (status.st_mode & 0111) != 0 ? "x" : "-").ToStdString();
      if ((status.st_mode & 07000) != 0) what += "special bits ";
      what.append(std::istreambuf_iterator<char>(file), {});
    }
  }
  return tree;
}

/// An archive as a well-behaved program writes it, deflated.
void WriteArchive(const fs::path& file, const std::map<std::string, std::string>& contents) {
  archive* writer = archive_write_new();
  ASSERT_EQ(archive_write_set_format_zip(writer), ARCHIVE_OK);
  ASSERT_EQ(archive_write_open_filename(writer, file.c_str()), ARCHIVE_OK);
  for (const auto& [path, content] : contents) {
    archive_entry* entry = archive_entry_new();
    archive_entry_set_pathname(entry, path.c_str());
    archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
    archive_entry_set_mode(entry, AE_IFREG | 0644);
    ASSERT_EQ(archive_write_header(writer, entry), ARCHIVE_OK);
    ASSERT_EQ(archive_write_data(writer, content.data(), content.size()),
              static_cast<la_ssize_t>(content.size()));
    archive_entry_free(entry);
  }
  ASSERT_EQ(archive_write_free(writer), ARCHIVE_OK);
}

TEST(ZipArchiveTest, EveryHarmlessEntryIsThere) {
  const TemporaryDirectory folder;
  WriteFile(
      folder / "a.zip",
      ZipBuilder()
          .Add({.path = "app.dsym/Contents/DWARF/app", .content = "symbols"})
          .Add({.path = "empty/", .mode = 040755})
          .Add({.path = "./tools//run", .content = "#!", .mode = 0104755})
          .Add({.path = "gr\xC3\xB6\xC3\x9F"
                        "e",
                .content = "",
                .flags = 0x800})
          .Add({.path = "locked", .content = "read me", .mode = 0100000})
          .Add({.path = "app.dsym/Contents/up", .content = "../../tools/run", .mode = 0120777})
          .Add({.path = "old", .content = "empty", .mode = 0120777})
          .Add({.path = "empty/", .mode = 040755})
          .Finish());
  EXPECT_EQ(TextOf(Extract(folder / "a.zip", folder / "new/parents/out")), "");
  const std::map<std::string, std::string> expected = {
      {"app.dsym", "/"},
      {"app.dsym/Contents", "/"},
      {"app.dsym/Contents/DWARF", "/"},
      {"app.dsym/Contents/DWARF/app", "- symbols"},
      {"app.dsym/Contents/up", "-> ../../tools/run"},
      {"empty", "/"},
      {"gr\xC3\xB6\xC3\x9F"
       "e",
       "- "},
      {"locked", "- read me"},
      {"old", "-> empty"},
      {"tools", "/"},
      {"tools/run", "x #!"},
  };
  EXPECT_EQ(TreeOf(folder / "new/parents/out"), expected);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "new/parents"), {}), 1);
}

TEST(ZipArchiveTest, SeveralThreadsExtractEachEntryOnce) {
  const TemporaryDirectory folder;
  std::mt19937_64 random(7);
  std::map<std::string, std::string> contents;
  for (int i = 0; i < 300; ++i) {
    std::string content(random() % 160'000, '\0');
    for (char& c : content) c = static_cast<char>(random());
    contents[Format("d@/f@", i % 7, i).ToStdString()] = content;
  }
  WriteArchive(folder / "a.zip", contents);
  ASSERT_GT(fs::file_size(folder / "a.zip"), 16u << 20);  // enough for every thread
  ASSERT_EQ(TextOf(Extract(folder / "a.zip", folder / "out")), "");
  auto tree = TreeOf(folder / "out");
  std::erase_if(tree, [](const auto& entry) { return entry.second == "/"; });
  for (auto& [path, content] : contents) content.insert(0, "- ");
  EXPECT_TRUE(tree == contents);
}

struct HostileCase {
  const char* name;
  std::vector<ZipEntrySpec> entries;
  const char* entry;   ///< that the error names
  const char* reason;  ///< that it gives
  ArchiveLimits limits = {};
};

void PrintTo(const HostileCase& test, std::ostream* out) { *out << test.name; }

std::string Deep() {
  std::string path;
  for (int i = 0; i < 100; ++i) path += "d/";
  return path + "f";
}

class HostileArchiveTest : public testing::TestWithParam<HostileCase> {};

TEST_P(HostileArchiveTest, LeavesNothingAnywhere) {
  const TemporaryDirectory folder;
  fs::create_directory(folder / "inner");
  ZipBuilder builder;
  for (const ZipEntrySpec& entry : GetParam().entries) builder.Add(entry);
  WriteFile(folder / "a.zip", builder.Finish());
  const Result<void> extracted = Extract(folder / "a.zip", folder / "inner/out", GetParam().limits);
  ASSERT_FALSE(extracted);
  EXPECT_EQ(extracted.GetError().ClassId(), Error::kFile);
  EXPECT_EQ(extracted.GetError().Url(), ToUrl(folder / "a.zip"));
  EXPECT_EQ(TextOf(extracted),
            Format("Could not extract \"@\": entry \"@\": @", (folder / "a.zip").string(),
                   GetParam().entry, GetParam().reason));
  EXPECT_TRUE(fs::is_empty(folder / "inner"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), {}), 2);
}

const std::string kDeep = Deep();
constexpr const char* kDotDot = "its path holds \"..\"";

INSTANTIATE_TEST_SUITE_P(
    Entries, HostileArchiveTest,
    testing::Values(
        HostileCase{"ParentDirectory", {{"ok"}, {"../evil"}}, "../evil", kDotDot},
        HostileCase{"ControlCharacters", {{"../a\nb\x1B[2J"}}, "../a?b?[2J", kDotDot},
        HostileCase{"ParentOfParent", {{"a/../../evil"}}, "a/../../evil", kDotDot},
        HostileCase{"DosParent", {{.path = "..\\evil", .madeBy = 0}}, "../evil", kDotDot},
        HostileCase{"Absolute", {{"/tmp/evil"}}, "/tmp/evil", "its path is absolute"},
        HostileCase{"NoName", {{".", "x"}}, ".", "its path names no file"},
        HostileCase{"TooDeep",
                    {{kDeep}},
                    kDeep.c_str(),
                    "its path is 101 names deep, at most 100 are allowed"},
        HostileCase{"LinkUp",
                    {{"d/l", "../../out", 0120777}},
                    "d/l",
                    "it is a link to \"../../out\", which may lead out of the directory"},
        HostileCase{"LinkAbsolute",
                    {{"l", "/etc", 0120777}},
                    "l",
                    "it is a link to \"/etc\", which may lead out of the directory"},
        // Harmless by its letters, but "up" leads to the top, and its ".." out of it.
        HostileCase{"LinkThroughLink",
                    {{"a/b/up", "../..", 0120777}, {"l", "a/b/up/..", 0120777}},
                    "l",
                    "it is a link to \"a/b/up/..\", which may lead out of the directory"},
        HostileCase{"FileThroughLink",
                    {{"d/", "", 040755}, {"l", "d", 0120777}, {"l/f", "x"}},
                    "l/f",
                    "its path leads through \"l\", which is no directory"},
        HostileCase{"FileThroughFile",
                    {{"f", "x"}, {"f/g", "x"}},
                    "f/g",
                    "its path leads through \"f\", which is no directory"},
        HostileCase{"Device",
                    {{"null", "", 020666}},
                    "null",
                    "it is neither file, directory nor symbolic link"},
        HostileCase{"Doubled", {{"f", "1"}, {"f", "2"}}, "f", "the archive holds it twice"},
        HostileCase{"Encrypted",
                    {{.path = "f", .content = "0123456789abcdef", .flags = 1}},
                    "f",
                    "it is encrypted"},
        HostileCase{"Damaged",
                    {{.path = "f", .content = "x", .crc = 1}},
                    "f",
                    "ZIP bad CRC: 0x8cdc1683 should be 0x1"},
        HostileCase{"TooManyEntries",
                    {{"1"}, {"2"}, {"3"}},
                    "3",
                    "the archive holds more than 2 entries (g_archiveMaximumEntries)",
                    {.entries = 2}},
        HostileCase{"TooManyParents",
                    {{"a/b/c"}},
                    "a/b/c",
                    "the archive holds more than 2 entries (g_archiveMaximumEntries)",
                    {.entries = 2}},
        HostileCase{"TooManyBytes",
                    {{"1", "12345"}, {"2", "67"}},
                    "2",
                    "the archive holds more than 6 bytes (g_archiveMaximumBytes)",
                    {.bytes = 6}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ZipArchiveTest, LimitsThatAreJustReachedAreKept) {
  const TemporaryDirectory folder;
  WriteFile(folder / "a.zip", ZipBuilder().Add({"d/", "", 040755}).Add({"d/f", "123456"}).Finish());
  EXPECT_EQ(TextOf(Extract(folder / "a.zip", folder / "out", {.bytes = 6, .entries = 2})), "");
}

TEST(ZipArchiveTest, RealBytesCountAndNotDeclaredOnes) {
  const TemporaryDirectory folder;
  WriteArchive(folder / "bomb.zip", {{"zeros", std::string(32 << 20, '\0')}});
  EXPECT_LT(fs::file_size(folder / "bomb.zip"), 64u << 10);
  EXPECT_TRUE(TextOf(Extract(folder / "bomb.zip", folder / "out", {.bytes = 1 << 20}))
                  .ends_with("entry \"zeros\": the archive holds more than 1048576 bytes "
                             "(g_archiveMaximumBytes)"));
  EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(ZipArchiveTest, AnArchiveThatIsCutOffOrNoneIsRefused) {
  const TemporaryDirectory folder;
  const std::string whole = ZipBuilder().Add({"a", "content"}).Add({"b", "content"}).Finish();
  const std::string cutOff =
      "the archive is cut off: its directory, which stands at its end, is missing or damaged";
  ZipBuilder large;
  for (int i = 0; i < 100; ++i) large.Add({std::to_string(i) + std::string(60'000, 'n')});
  const std::pair<std::string, std::string> cases[] = {
      {whole.substr(0, whole.size() / 2), cutOff},
      {whole.substr(0, whole.size() - 1), cutOff},
      {"", "the archive is empty"},
      {std::string(70'000, 'P'), "Unrecognized archive format"},
      {large.Finish(),
       "the archive's directory is larger than 2 entries need (g_archiveMaximumEntries)"}};
  for (const auto& [content, reason] : cases) {
    WriteFile(folder / "a.zip", content);
    EXPECT_EQ(TextOf(Extract(folder / "a.zip", folder / "out", {.entries = 2})),
              Format("Could not extract \"@\": @", (folder / "a.zip").string(), reason));
    EXPECT_FALSE(fs::exists(folder / "out"));
  }
  mkfifo((folder / "pipe").c_str(), 0600);
  EXPECT_EQ(TextOf(Extract(folder / "pipe", folder / "out")),
            Format("Could not open the archive \"@\": it is not a regular file",
                   (folder / "pipe").string()));
  EXPECT_EQ(TextOf(Extract(folder / "none", folder / "out")),
            Format("Could not open the archive \"@\": No such file or directory",
                   (folder / "none").string()));
}

/// Any change of any byte gives a whole tree or an error that leaves nothing.
TEST(ZipArchiveTest, ChangedBytesNeverLeaveAPart) {
  const TemporaryDirectory folder;
  const std::string whole = ZipBuilder()
                                .Add({"d/f", "content"})
                                .Add({"l", "d/f", 0120777})
                                .Add({"e/", "", 040755})
                                .Finish();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string changed = whole;
    changed[at] = static_cast<char>(changed[at] ^ (at % 3 == 0 ? 0xFF : 0x10));
    WriteFile(folder / "a.zip", changed);
    const bool isExtracted = static_cast<bool>(Extract(folder / "a.zip", folder / "out"));
    ASSERT_EQ(fs::is_directory(folder / "out"), isExtracted) << at;
    fs::remove_all(folder / "out");
    ASSERT_EQ(std::distance(fs::directory_iterator(folder.Path()), {}), 1) << at;
  }
}

TEST(ZipArchiveTest, AFullDiskLeavesNothing) {
  const TemporaryDirectory folder;
  WriteArchive(folder / "a.zip", {{"first", "x"}, {"large", std::string(4 << 20, 'x')}});
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto previous = signal(SIGXFSZ, SIG_IGN);
  const rlimit small{.rlim_cur = 1 << 20, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const Result<void> extracted = Extract(folder / "a.zip", folder / "out");
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, previous);
  EXPECT_TRUE(TextOf(extracted).ends_with("entry \"large\": File too large")) << TextOf(extracted);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), {}), 1);
}

TEST(ZipArchiveTest, AKillInTheMiddleLeavesNothingThatCounts) {
  const TemporaryDirectory folder;
  WriteArchive(folder / "a.zip", {{"zeros", std::string(256 << 20, '\0')}});
  const pid_t child = fork();
  if (child == 0) _exit(Extract(folder / "a.zip", folder / "cache/out") ? 0 : 1);
  const auto hasBegun = [&] {
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator(folder / "cache", ignored))
      if (entry.path().filename() == "zeros" && entry.file_size(ignored) > 0) return true;
    return false;
  };
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!hasBegun() && std::chrono::steady_clock::now() < end) usleep(100);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the extraction ended before it could be killed";
  ASSERT_FALSE(fs::exists(folder / "cache/out"));
  ASSERT_FALSE(fs::is_empty(folder / "cache"));  // what the killed process left

  EXPECT_EQ(TextOf(Extract(folder / "a.zip", folder / "cache/out")), "");
  EXPECT_EQ(fs::file_size(folder / "cache/out/zeros"), 256u << 20);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "cache"), {}), 1);
}

}  // namespace
}  // namespace tarvo
