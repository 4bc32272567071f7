#include "run_program.h"

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarvo {
namespace {

std::vector<char*> Pointers(const std::vector<std::string>& texts, char** before = nullptr) {
  std::vector<char*> pointers;
  while (before != nullptr && *before != nullptr) pointers.push_back(*before++);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::string ContentAndClose(int descriptor) {
  std::string content(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
  content.resize(static_cast<std::size_t>(
      std::max<ssize_t>(pread(descriptor, content.data(), content.size(), 0), 0)));
  close(descriptor);
  return content;
}

}  // namespace

ProgramEnd RunProgram(const std::vector<std::string>& commandLine,
                      const std::vector<std::string>& environment) {
  const int output = memfd_create("output", MFD_CLOEXEC);
  const int errors = memfd_create("errors", MFD_CLOEXEC);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  pid_t child = 0;
  int status = 0;
  ProgramEnd end;
  if (posix_spawn(&child, commandLine[0].c_str(), &actions, nullptr, Pointers(commandLine).data(),
                  Pointers(environment, environ).data()) == 0 &&
      waitpid(child, &status, 0) == child)
    end.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  posix_spawn_file_actions_destroy(&actions);
  end.output = ContentAndClose(output);
  end.errors = ContentAndClose(errors);
  return end;
}

}  // namespace tarvo
