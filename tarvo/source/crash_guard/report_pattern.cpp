#include <errno.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "crash_guard/report_file.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kReportPattern{"tarvo/source/crash_guard/report_pattern"};

/// Programs seldom have so many files open; should one have, its file there is closed at the crash.
constexpr rlim_t kHighestDescriptor = 1023;
/// Room for the digits of a process id in the place of its mark.
constexpr std::size_t kProcessIdRoom = 10;

int HighDescriptor() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == 0) return kHighestDescriptor;
  return static_cast<int>(std::min(limit.rlim_cur - 1, kHighestDescriptor));
}

/// The name that the program was called by, as a part of a file's name.
std::string ProgramName() {
  std::string name = program_invocation_short_name;
  std::ranges::replace_if(
      name, [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == '/'; }, '_');
  return name.empty() ? "program" : name;
}

/// "20261121T130940Z"
std::string StartTime() {
  const time_t now = time(nullptr);
  tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  return {text, strftime(text, sizeof(text), "%Y%m%dT%H%M%SZ", &parts)};
}

Result<std::string> Expand(std::string_view pattern) {
  std::string path;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') {
      path += pattern[i];
      continue;
    }
    const char what = ++i < pattern.size() ? pattern[i] : '\0';
    if (what == 'p') {
      path += kProcessIdMark;
    } else if (what == 'e') {
      path += ProgramName();
    } else if (what == 't') {
      path += StartTime();
    } else if (what == '%') {
      path += '%';
    } else {
      return Error::IllegalArgument(
          kReportPattern.Here(),
          Format("The report path \"@\" has a % that is followed by none of p (process id), e "
                 "(program name), t (time of the start) and %.",
                 pattern));
    }
  }
  return path;
}

/// Stores `path` as a template; false when it is too long for one.
bool Store(const std::string& path, char (&reportTemplate)[PATH_MAX]) {
  const auto ids = static_cast<std::size_t>(std::ranges::count(path, kProcessIdMark));
  if (path.size() + ids * kProcessIdRoom >= sizeof(reportTemplate)) return false;
  *std::ranges::copy(path, reportTemplate).out = '\0';
  return true;
}

}  // namespace

Result<std::string> PrepareReportFile(std::string_view pattern, const std::string& fallback) {
  const auto expanded = Expand(pattern);
  if (!expanded) return expanded.GetError();
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(*expanded, error);
  if (error || !Store(path.string(), g_reportTemplate)) {
    return Error::IllegalArgument(
        kReportPattern.Here(),
        Format("The report path \"@\" cannot be made absolute, or is longer than @ "
               "bytes then.",
               pattern, sizeof(g_reportTemplate) - 1));
  }
  const std::string_view folders = pattern.substr(0, pattern.rfind('/') + 1);
  g_makesReportFolders = folders.find('%') != std::string_view::npos;
  const std::filesystem::path other = std::filesystem::path(fallback) / path.filename();
  if (fallback.empty() || !Store(other.string(), g_fallbackTemplate)) g_fallbackTemplate[0] = '\0';
  g_reportDescriptor = HighDescriptor();
  return "/proc/self/fd/" + std::to_string(g_reportDescriptor);
}

PreparedReport PreparedReportOfNow() {
  std::string path;
  for (const char* c = g_reportTemplate; *c != '\0'; ++c)
    path += *c == kProcessIdMark ? std::to_string(getpid()) : std::string(1, *c);
  return {path, g_makesReportFolders};
}

bool ForgetReportFile() { return std::exchange(g_reportDescriptor, -1) >= 0; }

}  // namespace tarvo
