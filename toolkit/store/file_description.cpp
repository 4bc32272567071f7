#include "toolkit/store/file_description.h"

#include <fcntl.h>
#include <link.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kFileDescription{"command/store/file_description"};
constexpr const char* kReader = "tarvo-symbol-indexer";
constexpr const char* kMegabytes = "4096";
constexpr std::size_t kMaximumDescriptionBytes = std::size_t{64} << 20;

/// The folder of the host library, which the program has loaded.
fs::path HostLibraryFolder() {
  fs::path folder;
  const auto look = [](dl_phdr_info* info, std::size_t, void* found) {
    const fs::path library = info->dlpi_name;
    if (library.filename().native().starts_with("libtarvo.so"))
      *static_cast<fs::path*>(found) = library.parent_path();
    return 0;
  };
  dl_iterate_phdr(look, &folder);
  return folder;
}

/// The program stands with the modules: beside the folder of this program, or where modules are
/// installed.
std::string ReaderProgram() {
  std::error_code error;
  const fs::path own = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const fs::path& folder : {own / "..", HostLibraryFolder() / "tarvo"})
    if (const fs::path program = folder / "modules" / kReader; fs::exists(program, error))
      return program.native();
  return {};
}

std::string ReadAll(int pipe) {
  std::string text;
  std::array<char, 1 << 16> bytes;
  for (ssize_t size; (size = read(pipe, bytes.data(), bytes.size())) != 0;) {
    if (size < 0 && errno != EINTR) break;
    if (size > 0 && text.size() < kMaximumDescriptionBytes)
      text.append(bytes.data(), static_cast<std::size_t>(size));
  }
  return text;
}

/// Runs the program with one output taken; its words on standard error are dropped. Nothing where
/// it did not end well.
std::optional<std::string> Output(std::vector<std::string> arguments) {
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_t child = 0;
  const int failure = posix_spawn(&child, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe[1]);
  std::string text = failure == 0 ? ReadAll(pipe[0]) : std::string();
  close(pipe[0]);
  int status = 0;
  while (failure == 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  const bool isWhole = failure == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return isWhole ? std::optional(std::move(text)) : std::nullopt;
}

std::optional<std::uint64_t> ToCount(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  return status == std::errc{} ? std::optional(number) : std::nullopt;
}

FileDescription::Kind ToKind(std::string_view text) {
  using enum FileDescription::Kind;
  if (text == "program") return Program;
  if (text == "library") return Library;
  return text == "debug" ? DebugFile : Object;
}

using Set = void (*)(FileDescription& description, std::string_view value);

/// By key: those that follow another one are of what that one has begun.
const std::map<std::string_view, Set>& Setters() {
  static const std::map<std::string_view, Set> kSetters = {
      {"format", [](FileDescription& d, std::string_view v) { d.format = v; }},
      {"platform", [](FileDescription& d, std::string_view v) { d.platform = v; }},
      {"kind", [](FileDescription& d, std::string_view v) { d.kind = ToKind(v); }},
      {"architecture",
       [](FileDescription& d, std::string_view v) { d.slices.push_back({std::string(v), {}}); }},
      {"id",
       [](FileDescription& d, std::string_view v) {
         if (!d.slices.empty()) d.slices.back().id = v;
       }},
      {"dwarf", [](FileDescription& d, std::string_view) { d.hasDebugInformation = true; }},
      {"symbols", [](FileDescription& d, std::string_view) { d.hasSymbolTable = true; }},
      {"pdb",
       [](FileDescription& d, std::string_view v) { d.pdb = v.substr(v.find_last_of("/\\") + 1); }},
      {"pdbfound", [](FileDescription& d, std::string_view v) { d.pdbFound = v; }},
      {"shared", [](FileDescription& d,
                    std::string_view v) { d.shared = CompanionFile{{}, std::string(v), {}, {}}; }},
      {"sharedid",
       [](FileDescription& d, std::string_view v) {
         if (d.shared) d.shared->id = v;
       }},
      {"sharedfound",
       [](FileDescription& d, std::string_view v) {
         if (d.shared) d.shared->found = v;
       }},
      {"split", [](FileDescription& d,
                   std::string_view v) { d.split.push_back({std::string(v), {}, {}, {}}); }},
      {"splitname",
       [](FileDescription& d, std::string_view v) {
         if (!d.split.empty()) d.split.back().name = v;
       }},
      {"splitfound",
       [](FileDescription& d, std::string_view v) {
         if (!d.split.empty()) d.split.back().found = v;
       }},
      {"functions", [](FileDescription& d, std::string_view v) { d.functions = ToCount(v); }},
      {"inlined", [](FileDescription& d, std::string_view v) { d.inlined = ToCount(v); }},
      {"lines", [](FileDescription& d, std::string_view v) { d.lines = ToCount(v); }}};
  return kSetters;
}

FileDescription Parse(std::string_view text) {
  FileDescription description;
  while (!text.empty()) {
    const std::string_view record = text.substr(0, text.find('\0'));
    text.remove_prefix(std::min(text.size(), record.size() + 1));
    const std::size_t border = record.find('=');
    const auto setter = Setters().find(record.substr(0, border));
    if (border != std::string_view::npos && setter != Setters().end())
      setter->second(description, record.substr(border + 1));
  }
  description.hasDebugInformation |= description.format == "PDB";
  return description;
}

}  // namespace

Result<FileDescription> DescribeFile(const std::string& path, DescriptionDepth depth) {
  static const std::string program = ReaderProgram();
  if (program.empty())
    return Error::IllegalState(kFileDescription.Here(),
                               Format("The program @ is not there: this build was made without "
                                      "LLVM 19.",
                                      kReader));
  const bool isDeep = depth == DescriptionDepth::Contents;
  const auto text = Output({program, "describe", path, isDeep ? "contents" : "identity", kMegabytes,
                            isDeep ? "600" : "60"});
  if (text) return Parse(*text);
  return Error::File(
      kFileDescription.Here(),
      Format("\"@\": found no whole debug file, expected ELF, Mach-O, PE or PDB.", SafeText(path)),
      Url::FromSystemPath(path));
}

}  // namespace tarvo::toolkit
