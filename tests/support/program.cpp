#include "support/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  int ends[2];
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
  }
};

[[noreturn]] void BecomeProgram(const std::vector<std::string>& arguments,
                                const ProgramOptions& options, int output, int errors) {
  setpgid(0, 0);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  close(STDIN_FILENO);
  open("/dev/null", O_RDONLY);
  if (!options.directory.empty() && chdir(options.directory.c_str()) != 0) _exit(126);
  // What the sanitizer would handle itself is the crash handler's here.
  if (kSanitized)
    putenv(
        strdup("ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigill=0:handle_sigfpe=0:"
               "handle_sigtrap=0:handle_abort=0"));
  for (const std::string& variable : options.environment) putenv(strdup(variable.c_str()));
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(strdup(argument.c_str()));
  pointers.push_back(nullptr);
  execv(pointers[0], pointers.data());
  _exit(127);
}

/// Reads both pipes until they end or the time is up; whether they ended.
bool Collect(std::array<pollfd, 2> pipes, std::array<std::string*, 2> texts,
             Clock::time_point deadline) {
  while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    poll(pipes.data(), pipes.size(), static_cast<int>(left));
    for (std::size_t i = 0; i < pipes.size(); ++i) {
      if (pipes[i].fd < 0 || pipes[i].revents == 0) continue;
      char buffer[65536];
      const ssize_t size = read(pipes[i].fd, buffer, sizeof(buffer));
      if (size > 0) {
        texts[i]->append(buffer, static_cast<std::size_t>(size));
      } else {
        pipes[i].fd = -1;
      }
    }
  }
  return true;
}

}  // namespace

std::string ProgramResult::Describe() const {
  std::string text = timedOut      ? "killed after its time was up"
                     : signal != 0 ? "signal " + std::to_string(signal)
                                   : "exit status " + std::to_string(exitStatus);
  return text + "\nstandard error:\n" + errors.substr(0, 4000);
}

ProgramResult RunProgram(const std::vector<std::string>& arguments, const ProgramOptions& options) {
  Pipe output;
  Pipe errors;
  const Clock::time_point deadline = Clock::now() + options.timeout;
  const pid_t child = fork();
  if (child == 0) {
    if (options.closeStandardError) close(errors.ends[0]);
    BecomeProgram(arguments, options, output.ends[1], errors.ends[1]);
  }
  setpgid(child, child);
  close(output.ends[1]);
  close(errors.ends[1]);
  if (options.closeStandardError) close(errors.ends[0]);
  ProgramResult result;
  const int errorsEnd = options.closeStandardError ? -1 : errors.ends[0];
  result.timedOut = !Collect({pollfd{output.ends[0], POLLIN, 0}, pollfd{errorsEnd, POLLIN, 0}},
                             {&result.output, &result.errors}, deadline);
  int status = 0;
  while (!result.timedOut && waitpid(child, &status, WNOHANG) == 0) {
    result.timedOut = Clock::now() > deadline;
    usleep(1000);
  }
  if (result.timedOut) {
    kill(-child, SIGKILL);
    waitpid(child, &status, 0);
  } else if (WIFEXITED(status)) {
    result.exitStatus = WEXITSTATUS(status);
  } else {
    result.signal = WTERMSIG(status);
  }
  close(output.ends[0]);
  if (!options.closeStandardError) close(errors.ends[0]);
  return result;
}

std::string BuildDirectory() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
}
