#include "toolkit/exec/exec_target.h"

#include <elf.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

#include "toolkit/exec/elf_program.h"

namespace tarvo::toolkit {
namespace {

/// As many interpreters of interpreters as the kernel follows (linux-6.1 fs/exec.c, exec_binprm).
constexpr int kMaximumInterpreters = 5;
/// Of a script's first line (linux-6.1 include/uapi/linux/binfmts.h, BINPRM_BUF_SIZE).
constexpr std::size_t kFirstLine = 256;

bool IsExecutableFile(const std::string& file) {
  struct stat status{};
  return stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(file.c_str(), X_OK) == 0;
}

std::string ReadStart(std::ifstream& file, std::size_t size) {
  std::string start(size, '\0');
  file.read(start.data(), static_cast<std::streamsize>(size));
  start.resize(static_cast<std::size_t>(file.gcount()));
  file.clear();
  return start;
}

/// The program that a script's first line names; empty for a file that is no script.
std::string InterpreterOf(std::string_view start) {
  if (!start.starts_with("#!")) return {};
  start = start.substr(2, start.find('\n') - 2);
  const std::size_t first = start.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  start.remove_prefix(first);
  return std::string(start.substr(0, start.find_first_of(" \t")));
}

/// Whether the kernel runs the file with rights that its caller has not: the loader ignores
/// preloaded libraries then.
bool GivesRights(const std::string& file) {
  struct stat status{};
  if (stat(file.c_str(), &status) != 0) return false;
  const bool setsUser = (status.st_mode & S_ISUID) != 0 && status.st_uid != getuid();
  const bool setsGroup =
      (status.st_mode & (S_ISGID | S_IXGRP)) == (S_ISGID | S_IXGRP) && status.st_gid != getgid();
  const bool hasCapabilities =
      getuid() != 0 && getxattr(file.c_str(), "security.capability", nullptr, 0) > 0;
  return setsUser || setsGroup || hasCapabilities;
}

/// Of the C library that the capture is built for.
constexpr std::string_view kLoader = "/ld-linux-x86-64.so.2";

/// Runtimes that end a program when another library comes before them, by how their names begin.
constexpr std::array<std::string_view, 2> kFirstRuntimes{"libasan.so", "libclang_rt.asan"};

bool MustComeFirst(const std::string& library) {
  return std::ranges::any_of(
      kFirstRuntimes, [&](std::string_view runtime) { return library.starts_with(runtime); });
}

/// What keeps the capture out of an ELF file; empty when nothing does.
std::string ElfProblem(std::ifstream& file) {
  const Result<ElfProgram> program = ReadElfProgram(file);
  if (!program) return program.GetError().Message().ToStdString();
  if (program->interpreter.empty())
    return "is statically linked: there is no loader that could load the capture into it";
  if (!program->interpreter.ends_with(kLoader)) {
    return "is run by the loader \"" + program->interpreter +
           "\", which is not the GNU C library's, so the capture cannot be loaded into it";
  }
  const auto runtime = std::ranges::find_if(program->needed, MustComeFirst);
  if (runtime == program->needed.end()) return {};
  return "is built with the address sanitizer, whose runtime " + *runtime +
         " ends a program when another library is loaded before it; build it without, or link the "
         "host library into it";
}

}  // namespace

std::string FindProgram(const std::string& name) {
  if (name.empty() || name.find('/') != std::string::npos) return name;
  const char* variable = std::getenv("PATH");
  std::string_view path = variable == nullptr ? "/bin:/usr/bin" : variable;
  for (;;) {
    const std::string_view folder = path.substr(0, path.find(':'));
    std::string file = (folder.empty() ? "." : std::string(folder)) + "/" + name;
    if (IsExecutableFile(file)) return file;
    if (folder.size() == path.size()) return {};
    path.remove_prefix(folder.size() + 1);
  }
}

TargetProblem CheckTarget(const std::string& file) {
  std::string checked = file;
  for (int i = 0; i <= kMaximumInterpreters; ++i) {
    const std::string quoted = "\"" + checked + "\" ";
    if (access(checked.c_str(), F_OK) != 0)
      return {kNoSuchProgram, quoted + "is not there: " + std::strerror(errno)};
    if (!IsExecutableFile(checked)) return {kCannotRun, quoted + "is not an executable file"};
    std::ifstream content(checked, std::ios::binary);
    const std::string start = ReadStart(content, kFirstLine);
    const std::string interpreter = InterpreterOf(start);
    // The kernel ignores these bits of scripts.
    if (interpreter.empty() && GivesRights(checked))
      return {kNotStarted, quoted +
                               "runs with rights of its own (set-user-ID, set-group-ID or "
                               "capabilities): the loader ignores preloaded libraries there"};
    if (interpreter.empty()) {
      const std::string problem = start.starts_with(ELFMAG) ? ElfProblem(content) : "";
      return {kNotStarted, problem.empty() ? "" : quoted + problem};
    }
    checked = interpreter;
  }
  return {kCannotRun, "\"" + file + "\" has too many interpreters"};
}

}  // namespace tarvo::toolkit
