#include "toolkit/document/crash.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "tarvo/crash_report.h"
#include "toolkit/report/handler_frames.h"

namespace tarvo::toolkit {
namespace {

/// A number as reports write it: "0x…" or decimal.
std::optional<std::uint64_t> ToNumber(std::string_view text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, number, isHexadecimal ? 16 : 10);
  return status == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<report::HandlerFrames> HandlerFramesOf(const DocumentThread& thread) {
  std::vector<report::FrameName> names;
  names.reserve(thread.frames.size());
  for (const DocumentFrame& frame : thread.frames)
    names.push_back(
        {.module = frame.module, .function = frame.function, .address = frame.address.value_or(0)});
  const auto fault =
      ToNumber(FindText(thread.variables, crash_report::variable::kFaultProgramCounter));
  return report::FindHandlerFrames(names, fault);
}

bool HasHandlerFrames(const DocumentThread& thread) { return HandlerFramesOf(thread).has_value(); }

std::size_t CrashedFrame(const DocumentThread& thread) {
  const auto handler = HandlerFramesOf(thread);
  return handler ? handler->Interrupted() : 0;
}

template <typename Is>
std::optional<Crash> FindThread(const CrashDocument& document, Is is) {
  const auto thread = std::ranges::find_if(document.threads, is);
  if (thread == document.threads.end()) return std::nullopt;
  return Crash{static_cast<std::size_t>(thread - document.threads.begin()), CrashedFrame(*thread)};
}

}  // namespace

std::optional<Crash> FindCrash(const CrashDocument& document) {
  if (const auto number =
          ToNumber(FindText(document.exception, crash_report::key::kExceptionThread))) {
    const auto byRegister = FindThread(document, [&](const DocumentThread& thread) {
      return ToNumber(FindText(thread.registers, crash_report::kThreadRegister)) == number;
    });
    if (byRegister) return byRegister;
    const auto byNumber =
        FindThread(document, [&](const DocumentThread& thread) { return thread.number == number; });
    if (byNumber) return byNumber;
  }
  return FindThread(document, HasHandlerFrames);
}

}  // namespace tarvo::toolkit
