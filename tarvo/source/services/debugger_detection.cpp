#include "services/debugger_detection.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "files/file_reading.h"

namespace tarvo {
namespace {

/// Debuggers that start the program they debug. Variants carry a suffix ("gdb-multiarch",
/// "lldb-server", "lldb-19"); front ends run one of these.
constexpr std::array<std::string_view, 5> kDebuggers{"gdb", "gdbserver", "lldb", "rr", "edb"};

/// Parents that are looked at. A real chain is shorter; one that changes while it is walked may not
/// end by itself.
constexpr int kMaximumParents = 128;

bool IsDebugger(std::string_view name) {
  return std::ranges::any_of(kDebuggers, [name](std::string_view debugger) {
    return name == debugger || (name.starts_with(debugger) && name[debugger.size()] == '-');
  });
}

/// The number of a line "FIELD:\tNUMBER" of a process's status (linux/fs/proc/array.c,
/// proc_pid_status; a line end in the process's name is escaped there).
long Field(std::string_view status, std::string_view field) {
  const std::string start = '\n' + std::string(field) + ":\t";
  const std::size_t at = status.find(start);
  long number = 0;
  if (at != std::string_view::npos)
    std::from_chars(status.data() + at + start.size(), status.data() + status.size(), number);
  return number;
}

String ReadProcessFile(const std::string& path) {
  constexpr std::size_t kMaximumBytes = 64 * 1024;
  return ReadWholeFile(Url::FromSystemPath(path), kMaximumBytes).ValueOr({});
}

}  // namespace

bool RunsUnderDebugger(const std::string& processes) {
  String status = ReadProcessFile(processes + "/self/status");
  if (Field(status, "TracerPid") != 0) return true;
  for (int i = 0; i < kMaximumParents; ++i) {
    const long parent = Field(status, "PPid");
    if (parent <= 0) return false;
    const std::string folder = processes + '/' + std::to_string(parent);
    const String name = ReadProcessFile(folder + "/comm");
    if (IsDebugger(name.View().substr(0, name.View().find('\n')))) return true;
    status = ReadProcessFile(folder + "/status");
  }
  return false;
}

}  // namespace tarvo
