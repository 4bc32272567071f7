#include "indexer_client/indexer_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "connection.h"
#include "indexer_client/indexer_protocol.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

constexpr std::string_view kProgramName = "tarvo-symbol-indexer";
constexpr std::size_t kMostErrorText = 1000;
constexpr int kMillisecondsBetweenLooks = 100;

/// What posix_spawn is told about the child.
class SpawnSetup {
 public:
  explicit SpawnSetup(const StandardStreams& streams) {
    posix_spawn_file_actions_init(&actions_);
    SetStream(streams.input, STDIN_FILENO);
    SetStream(streams.output, STDOUT_FILENO);
    SetStream(streams.error, STDERR_FILENO);
    posix_spawnattr_init(&attributes_);
    sigset_t set;
    sigemptyset(&set);
    posix_spawnattr_setsigmask(&attributes_, &set);
    sigfillset(&set);
    posix_spawnattr_setsigdefault(&attributes_, &set);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  int Spawn(pid_t& pid, char* const* arguments) const {
    return posix_spawn(&pid, arguments[0], &actions_, &attributes_, arguments, environ);
  }

 private:
  void SetStream(int from, int to) {
    if (from < 0)
      posix_spawn_file_actions_addopen(&actions_, to, "/dev/null", O_RDWR, 0);
    else
      posix_spawn_file_actions_adddup2(&actions_, from, to);
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

/// What the child keeps in `file`; nothing where that is -1.
IndexProgress ReadProgress(int file) {
  IndexProgress progress;
  const bool isRead = pread(file, &progress, sizeof progress, 0) == sizeof progress;
  return isRead ? progress : IndexProgress{};
}

/// The parts of the debug file that the child has looked at, as it keeps them in `file`.
std::vector<MissingFile> ReadParts(int file) {
  constexpr std::size_t kMostBytes = std::size_t{64} << 20;
  struct stat status{};
  if (fstat(file, &status) != 0) return {};
  const auto all = static_cast<std::size_t>(status.st_size);
  std::vector<std::uint8_t> bytes(std::min(all, kMostBytes));
  const ssize_t size = pread(file, bytes.data(), bytes.size(), sizeof(IndexProgress));
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return DecodeFiles(bytes);
}

/// Waits for all that the child writes, cut to its first line without the full stop. Meanwhile
/// tells how far the child is.
std::string ReadErrors(int pipe, int progressFile, const OnIndexing& onIndexing) {
  std::string text;
  std::array<char, 512> bytes;
  pollfd ready{.fd = pipe, .events = POLLIN, .revents = 0};
  for (;;) {
    if (poll(&ready, 1, kMillisecondsBetweenLooks) == 0) {
      const IndexProgress progress = ReadProgress(progressFile);
      onIndexing(progress.done, progress.all);
      continue;
    }
    const ssize_t size = read(pipe, bytes.data(), bytes.size());
    if (size == 0 || (size < 0 && errno != EINTR)) break;
    if (size > 0 && text.size() < kMostErrorText)
      text.append(bytes.data(), static_cast<std::size_t>(size));
  }
  text.resize(std::min(text.find('\n'), text.size()));
  while (text.ends_with('.')) text.pop_back();
  return text;
}

/// A process that some other one has killed may do better next time.
bool IsLasting(int status) {
  constexpr std::array kOwnFaults = {SIGABRT, SIGALRM, SIGBUS, SIGFPE, SIGILL, SIGSEGV};
  if (WIFEXITED(status)) return WEXITSTATUS(status) == kExitUnreadable;
  return std::ranges::find(kOwnFaults, WTERMSIG(status)) != kOwnFaults.end();
}

std::optional<IndexFailure> Outcome(int status, const std::string& errors,
                                    const IndexerLimits& limits) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return std::nullopt;
  std::string text = WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                       : std::string(strsignal(WTERMSIG(status)));
  if (!errors.empty()) text += ": " + errors;
  return IndexFailure{text + " (" + limits.Text() + ")", IsLasting(status)};
}

}  // namespace

std::string IndexerLimits::Text() const {
  return Format("memory limit @ MiB, time limit @ s", megabytes, seconds).ToStdString();
}

std::string IndexerProgram() {
  return g_tarvo.framework->ModuleDirectory().ToStdString() + "/" + std::string(kProgramName);
}

int StartIndexer(const std::vector<std::string>& arguments, const StandardStreams& streams,
                 pid_t& pid) {
  std::vector<std::string> texts = {IndexerProgram()};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return SpawnSetup(streams).Spawn(pid, pointers.data());
}

std::optional<int> AwaitIndexer(pid_t pid) {
  int status = 0;
  pid_t ended = 0;
  do {
    ended = waitpid(pid, &status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended == pid ? std::optional(status) : std::nullopt;
}

std::optional<IndexFailure> RunIndexer(const IndexTask& task, const OnIndexing& onIndexing) {
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) return IndexFailure{std::strerror(errno)};
  const int progress = memfd_create("tarvo-index-progress", MFD_CLOEXEC);
  pid_t pid = 0;
  const int failure = StartIndexer(
      {"index", task.debugFile, task.architecture, std::to_string(task.limits.megabytes),
       std::to_string(task.limits.seconds), task.key, task.output},
      {.output = progress, .error = pipe[1]}, pid);
  close(pipe[1]);
  const std::string errors =
      failure == 0 ? ReadErrors(pipe[0], progress, onIndexing) : std::string();
  close(pipe[0]);
  std::vector<MissingFile> parts = ReadParts(progress);
  if (progress >= 0) close(progress);
  if (failure != 0) return IndexFailure{IndexerProgram() + ": " + std::strerror(failure)};
  const auto status = AwaitIndexer(pid);
  auto outcome = status ? Outcome(*status, errors, task.limits) : std::nullopt;
  if (outcome) outcome->parts = std::move(parts);
  return outcome;
}

}  // namespace tarvo::symbolreader
