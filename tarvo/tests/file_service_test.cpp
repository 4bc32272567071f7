#include "files/file_service.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "files/directory_once.h"
#include "files/file_reading.h"
#include "support/files.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace std::string_view_literals;

class FileServiceTest : public testing::Test {
 protected:
  [[nodiscard]] Url At(std::string_view name) const {
    return Url::FromSystemPath((directory_ / name).string());
  }
  void Put(std::string_view name, std::string_view content = {}) const {
    std::ofstream(directory_ / name, std::ios::binary) << content;
  }
  [[nodiscard]] std::string Content(std::string_view name) const {
    std::ostringstream content;
    content << std::ifstream(directory_ / name, std::ios::binary).rdbuf();
    return content.str();
  }
  /// Every name in the directory, hidden ones too, with its attributes as Browse gives them.
  std::map<std::string, std::uint32_t> Browse(const Url& directory) {
    std::map<std::string, std::uint32_t> found;
    const auto entries = files_.Browse(directory);
    if (!entries) return {{entries.GetError().Message().ToStdString(), 0}};
    DirectoryEntry entry;
    for (auto more = (*entries)->Next(entry); more && *more; more = (*entries)->Next(entry)) {
      EXPECT_EQ(entry.url, directory.Append(entry.name));
      found[entry.name.ToStdString()] = entry.attributes;
    }
    return found;
  }

  TemporaryDirectory directory_;
  Files files_;
};

TEST_F(FileServiceTest, DetectsAndBrowsesEveryKindOfEntry) {
  const Url root = Url::FromSystemPath(directory_.Path().string());
  fs::create_directories(directory_ / "folder/inner");
  fs::create_directory(directory_ / ".hidden-folder");
  Put("file");
  Put(".hidden");
  Put("odd \n name\xFF");
  fs::create_symlink("file", directory_ / "link-to-file");
  fs::create_symlink("folder", directory_ / "link-to-folder");
  fs::create_symlink("nowhere", directory_ / "link-to-nothing");
  ASSERT_EQ(mkfifo((directory_ / "fifo").c_str(), 0600), 0);

  using Entries = std::map<std::string, std::uint32_t>;
  EXPECT_EQ(Browse(root), (Entries{{"folder", 0x1},
                                   {".hidden-folder", 0x81},
                                   {"file", 0},
                                   {".hidden", 0x80},
                                   {"odd \n name\xFF", 0},
                                   {"link-to-file", 0},
                                   {"link-to-folder", 0x80},
                                   {"link-to-nothing", 0x80},
                                   {"fifo", 0x80}}));
  EXPECT_EQ(Browse(At("folder/inner")), Entries{});
  EXPECT_EQ(Browse(At("none")), (Entries{{"Could not list \"" + (directory_ / "none").string() +
                                              "\": No such file or directory",
                                          0}}));

  const std::map<std::string, FileKind> kKinds{{"file", FileKind::File},
                                               {"folder", FileKind::Directory},
                                               {"fifo", FileKind::Other},
                                               {"none", FileKind::Nothing},
                                               {"link-to-file", FileKind::File},
                                               {"link-to-folder", FileKind::Directory},
                                               {"link-to-nothing", FileKind::Nothing},
                                               {"file\0x"s, FileKind::Nothing},
                                               {"file/below", FileKind::Nothing}};
  for (const auto& [name, kind] : kKinds) EXPECT_EQ(files_.Detect(At(name)), kind) << name;
  EXPECT_EQ(files_.Detect({}), FileKind::Nothing);
}

TEST_F(FileServiceTest, MakesMissingParentsAndAcceptsWhatIsThere) {
  Put("file");
  fs::create_directory_symlink(directory_.Path(), directory_ / "link");
  for (const char* name : {"a/b/c", "a/b/c", "a/x/", "link"})
    EXPECT_TRUE(files_.CreateDirectory(At(name))) << name;
  EXPECT_EQ(files_.Detect(At("a/b/c")), FileKind::Directory);
  EXPECT_EQ(files_.Detect(At("a/x")), FileKind::Directory);
  for (const std::string& name : {"file"s, "file/below"s, "a\0b"s}) {
    const auto result = files_.CreateDirectory(At(name));
    ASSERT_FALSE(result) << name;
    EXPECT_EQ(result.GetError().ClassId(), Error::kFile);
    EXPECT_EQ(result.GetError().Url(), At(name));
  }
  EXPECT_EQ(files_.Detect(At("a")), FileKind::Directory);
}

TEST_F(FileServiceTest, ReadsFilesWhateverTheirSaidSize) {
  // Around the sizes of the first buffer, so that the end is found on each side of its border.
  for (const std::size_t size : {0U, 1U, 16383U, 16384U, 16385U, 1000000U}) {
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7);
    Put("file", content);
    const auto read = files_.ReadText(At("file"));
    EXPECT_TRUE(read && read->View() == content) << size;
  }
  // The process file system says 0 for every size.
  const auto status = files_.ReadText(Url::FromSystemPath("/proc/self/status"));
  EXPECT_TRUE(status && status->StartsWith("Name:"));
  // A pipe has none, and comes in pieces.
  ASSERT_EQ(mkfifo((directory_ / "pipe").c_str(), 0600), 0);
  std::thread writer([&] { Put("pipe", std::string(300000, 'p')); });
  const auto piped = files_.ReadText(At("pipe"));
  writer.join();
  EXPECT_TRUE(piped && piped->View() == std::string(300000, 'p'));
}

TEST_F(FileServiceTest, NamesWhatCannotBeRead) {
  Put("file", "123456");
  const std::string root = directory_.Path().string();
  const struct {
    Result<String> result;
    std::string message;
  } kCases[] = {
      {files_.ReadText(At("none")),
       "Could not read \"" + root + "/none\": No such file or directory"},
      {files_.ReadText(Url::FromSystemPath(root)),
       "Could not read \"" + root + "\": Is a directory"},
      {files_.ReadText({}), "Could not read \"\": the path is empty"},
      {files_.ReadText(Url::FromSystemPath("a\0b"s)),
       "Could not read \"a\0b\": the path holds a NUL byte"s},
      {ReadWholeFile(At("file"), 5),
       "Could not read \"" + root + "/file\": it holds more than 5 bytes"},
      {ReadWholeFile(At("file"), 6), "123456"},
      {ReadWholeFile(Url::FromSystemPath("/dev/zero"), 100000),
       "Could not read \"/dev/zero\": it holds more than 100000 bytes"},
  };
  for (const auto& [result, message] : kCases)
    EXPECT_EQ(result ? *result : result.GetError().Message(), message);
}

TEST_F(FileServiceTest, AFileAppearsWhenItIsCommittedAndOnlyThen) {
  Put("target", "old");
  fs::permissions(directory_ / "target", fs::perms::owner_read);
  const mode_t mask = umask(027);
  auto file = files_.Create(At("target"));
  umask(mask);
  ASSERT_TRUE(file);
  const std::string large(200000, 'l');
  for (const std::string& part : {"new "s, large, ""s, " end"s}) ASSERT_TRUE((*file)->Write(part));
  EXPECT_EQ(Content("target"), "old");
  ASSERT_TRUE((*file)->Commit());
  EXPECT_EQ(Content("target"), "new " + large + " end");
  struct stat status{};
  ASSERT_EQ(stat((directory_ / "target").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640U);
  EXPECT_EQ((*file)->Write("more").GetError().ClassId(), Error::kIllegalState);

  auto dropped = files_.Create(At("target"));
  ASSERT_TRUE(dropped && (*dropped)->Write("unwanted"));
  dropped = Error::Plain({});
  const auto longName = std::string(255, 'n');
  auto longest = files_.Create(At(longName));
  ASSERT_TRUE(longest && (*longest)->Commit());
  EXPECT_EQ(Browse(Url::FromSystemPath(directory_.Path().string())),
            (std::map<std::string, std::uint32_t>{{"target", 0}, {longName, 0}}));
}

/// A full disk, played by the limit on a file's size.
TEST_F(FileServiceTest, AFileThatCouldNotBeWrittenWholeIsNeverCommitted) {
  Put("target", "old");
  auto file = files_.Create(At("target"));
  ASSERT_TRUE(file);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit small{.rlim_cur = 100000, .rlim_max = limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const auto written = (*file)->Write(std::string(150000, 'x'));
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, handler);
  ASSERT_FALSE(written);
  EXPECT_EQ(written.GetError().Message(),
            "Could not write \"" + (directory_ / "target").string() + "\": File too large");
  EXPECT_FALSE((*file)->Write("rest"));
  EXPECT_FALSE((*file)->Commit());
  file = Error::Plain({});
  EXPECT_EQ(Content("target"), "old");
  EXPECT_EQ(Browse(Url::FromSystemPath(directory_.Path().string())).size(), 1U);
}

/// Does `work` in another process, which is killed when that has begun to wait.
template <typename Work>
void KillAfter(Work work) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    alarm(50);
    work([&] {
      static_cast<void>(write(ends[1], "x", 1));
      for (;;) pause();
    });
    _exit(0);
  }
  close(ends[1]);
  char ready = 0;
  EXPECT_EQ(read(ends[0], &ready, 1), 1);
  close(ends[0]);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// What a killed process has left goes with the next one's first file or directory beside it; what a
// living one makes stays.
TEST_F(FileServiceTest, ClearsAwayWhatKilledProcessesLeft) {
  fs::create_directory(directory_ / "folder");
  KillAfter([&](auto wait) {
    const auto file = *files_.Create(At("folder/report"));
    static_cast<void>(file->Write("x"));
    static_cast<void>(MakeDirectoryOnce(At("folder/tree"), [&](int) -> Result<void> {
      wait();
      return {};
    }));
  });
  Put("folder/.tarvo-notes", "somebody's");
  EXPECT_EQ(Browse(At("folder")).size(), 3U);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t living = fork();
  if (living == 0) {
    alarm(50);
    const auto file = *files_.Create(At("folder/living"));
    static_cast<void>(write(ends[1], "x", 1));
    for (;;) pause();
  }
  char ready = 0;
  ASSERT_EQ(read(ends[0], &ready, 1), 1);
  const auto file = files_.Create(At("folder/other"));
  ASSERT_TRUE(file && (*file)->Commit());
  ASSERT_TRUE(MakeDirectoryOnce(At("folder/made"), [](int) -> Result<void> { return {}; }));
  auto left = Browse(At("folder"));
  EXPECT_EQ(left.erase(".tarvo-notes") + left.erase("other") + left.erase("made"), 3U);
  EXPECT_EQ(left.size(), 1U) << "the living process's file alone";
  kill(living, SIGKILL);
  waitpid(living, nullptr, 0);
}

TEST_F(FileServiceTest, LooksAtSizeAndStartBeforeContent) {
  Put("sparse");
  fs::resize_file(directory_ / "sparse", kMaximumTextBytes + 1);
  const auto whole = files_.ReadText(At("sparse"));
  ASSERT_FALSE(whole);
  EXPECT_TRUE(whole.GetError().Text().Contains("it holds more than 1073741824 bytes"));
  Put("short", "abc");
  ASSERT_EQ(mkfifo((directory_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(files_.ReadStart(At("sparse"), 4)->View(), "\0\0\0\0"sv);
  EXPECT_EQ(*files_.ReadStart(At("short"), 100), "abc");
  EXPECT_EQ(*files_.ReadStart(At("pipe"), 100), "");
  EXPECT_FALSE(files_.ReadStart(At("none"), 100));
}

}  // namespace
}  // namespace tarvo
