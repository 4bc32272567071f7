#include "toolkit/report/crash_site.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "tarvo/crash_report.h"
#include "tarvo/string.h"

namespace tarvo::report {
namespace {

/// How the modules that stand between an abort and who asked for it are called: the C and C++
/// runtime libraries of the three systems, and the crash guard's own terminate handler.
constexpr std::array<std::string_view, 17> kRuntimeLibraries = {
    "libc.so",  "libc-2",    "libpthread", "libstdc++", "libc++",     "libgcc_s",
    "ld-linux", "libtarvo.", "libc.musl",  "ld-musl",   "libsystem_", "libobjc.",
    "ucrtbase", "vcruntime", "msvcp",      "ntdll.",    "kernelbase."};

/// The signal on Linux and macOS; on Windows a program's own end, a check that failed fast, and a
/// C++ exception that nobody caught.
constexpr std::array<std::uint64_t, 4> kAborts = {6, 0x40000015, 0xC0000409, 0xE06D7363};
constexpr std::string_view kAbortSignal = "SIGABRT";

/// A number as reports write it: "0x…" or decimal.
std::optional<std::uint64_t> ToNumber(std::string_view text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, number, isHexadecimal ? 16 : 10);
  return status == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

bool IsRuntime(const FrameName& frame) {
  return std::ranges::any_of(kRuntimeLibraries, [&](std::string_view name) {
    return String(frame.module.substr(0, name.size())).EqualsIgnoringCase(name);
  });
}

bool Holds(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool IsAbort(const CrashFacts& facts, const ThreadFacts& thread) {
  if (Holds(thread.signal, kAbortSignal) || Holds(facts.exceptionText, kAbortSignal)) return true;
  const auto number = ToNumber(facts.exceptionNumber);
  return number && std::ranges::find(kAborts, *number) != kAborts.end();
}

template <typename Is>
std::optional<std::size_t> FindThread(const CrashFacts& facts, Is is) {
  for (std::size_t i = 0; i < facts.threads; ++i)
    if (is(i, facts.thread(i))) return i;
  return std::nullopt;
}

std::optional<std::size_t> CrashedThread(const CrashFacts& facts) {
  if (const auto number = ToNumber(facts.exceptionThread)) {
    const auto byRegister = FindThread(facts, [&](std::size_t, const ThreadFacts& thread) {
      return ToNumber(thread.threadRegister) == number;
    });
    if (byRegister) return byRegister;
    const auto byNumber = FindThread(
        facts, [&](std::size_t, const ThreadFacts& thread) { return thread.number == number; });
    if (byNumber) return byNumber;
  }
  const auto byFrames = FindThread(facts, [&](std::size_t index, const ThreadFacts&) {
    return facts.isIn(index, kCaptureModule);
  });
  const bool hasException = !facts.exceptionThread.empty() || !facts.exceptionNumber.empty() ||
                            !facts.exceptionText.empty();
  return byFrames || !hasException || facts.threads == 0 ? byFrames : std::optional<std::size_t>(0);
}

}  // namespace

CrashSite FindCrashSite(const CrashFacts& facts, std::size_t thread) {
  const ThreadFacts crashed = facts.thread(thread);
  const std::vector<FrameName> frames = facts.frames(thread);
  const auto handler = FindHandlerFrames(frames, ToNumber(crashed.fault));
  const std::size_t interrupted = handler ? handler->Interrupted() : 0;
  CrashSite site{.thread = thread, .interrupted = interrupted, .frame = interrupted};
  if (!IsAbort(facts, crashed) || interrupted >= frames.size()) return site;
  const auto first = frames.begin() + static_cast<std::ptrdiff_t>(interrupted);
  const auto caller = std::find_if_not(first, frames.end(), IsRuntime);
  if (caller != frames.end()) site.frame = static_cast<std::size_t>(caller - frames.begin());
  return site;
}

std::optional<CrashSite> FindCrashSite(const CrashFacts& facts) {
  const std::optional<std::size_t> thread = CrashedThread(facts);
  return thread ? std::optional(FindCrashSite(facts, *thread)) : std::nullopt;
}

}  // namespace tarvo::report
