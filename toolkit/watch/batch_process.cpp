#include "toolkit/watch/batch_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "tarvo/format.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kBatchProcess{"command/watch/batch_process"};
constexpr int kEndedByException = 1;

void WriteAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = Uninterrupted([&] { return write(file, bytes.data(), bytes.size()); });
    if (written <= 0) _exit(kEndedByException);  // the parent is gone
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

[[noreturn]] void BeChild(pid_t parent, int lines, const BatchProcess::Work& work) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kEndedByException);
  // What a terminal sends is for the parent, which passes it on.
  setpgid(0, 0);
  int status = kEndedByException;
  try {
    status = work([&](std::string_view line) {
      WriteAll(lines, line.empty() ? std::string_view("\n") : line);
    });
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "tarvo: %s\n", exception.what());
  }
  std::fflush(nullptr);
  _exit(status);
}

}  // namespace

Result<BatchProcess> BatchProcess::Start(const Work& work) {
  std::array<int, 2> ends{};
  const auto failed = [] {
    return Error::IllegalState(kBatchProcess.Here(),
                               Format("No process could be started: @", std::strerror(errno)));
  };
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return failed();
  FileDescriptor lines(ends[0]);
  FileDescriptor told(ends[1]);
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) return failed();
  if (child == 0) BeChild(parent, told.Get(), work);
  fcntl(lines.Get(), F_SETFL, O_NONBLOCK);
  return BatchProcess(child, std::move(lines));
}

BatchProcess::BatchProcess(BatchProcess&& other) noexcept
    : process_(std::exchange(other.process_, -1)),
      lines_(std::move(other.lines_)),
      unfinished_(std::move(other.unfinished_)) {}

BatchProcess::~BatchProcess() {
  Kill();
  Wait();
}

std::optional<std::vector<std::string>> BatchProcess::TakeLines() {
  std::vector<std::string> lines;
  std::array<char, 1 << 16> bytes{};
  for (;;) {
    const ssize_t count =
        Uninterrupted([&] { return read(lines_.Get(), bytes.data(), bytes.size()); });
    if (count < 0) return lines;
    if (count == 0) return lines.empty() ? std::nullopt : std::optional(std::move(lines));
    unfinished_.append(bytes.data(), static_cast<std::size_t>(count));
    std::size_t from = 0;
    for (std::size_t end = 0; (end = unfinished_.find('\n', from)) != std::string::npos;
         from = end + 1)
      lines.push_back(unfinished_.substr(from, end - from));
    unfinished_.erase(0, from);
  }
}

void BatchProcess::AskToEnd() const {
  if (process_ > 0) kill(process_, SIGTERM);
}

void BatchProcess::Kill() const {
  if (process_ > 0) kill(process_, SIGKILL);
}

int BatchProcess::Wait() {
  int status = 0;
  if (process_ > 0) Uninterrupted([&] { return waitpid(process_, &status, 0); });
  process_ = -1;
  return status;
}

}  // namespace tarvo::toolkit
