#include "toolkit/report/own_frame.h"

#include "tarvo/crash_report.h"
#include "toolkit/report/report_lines.h"

namespace tarvo::report {
namespace {

namespace frame = crash_report::frame;

/// Takes `end` off the end of `text`; whether it stood there.
bool TakeEnd(std::string_view& text, std::string_view end) noexcept {
  const bool isThere = text.ends_with(end);
  if (isThere) text.remove_suffix(end.size());
  return isThere;
}

/// "libscene.so(update+0x1c) " into module, function and offset; or nothing at all.
bool SplitName(std::string_view name, FrameText& text) noexcept {
  if (name.empty()) return true;
  const std::size_t open = name.rfind('(');
  if (open == std::string_view::npos || !TakeEnd(name, ") ")) return false;
  text.module = name.substr(0, open);
  text.place = name.substr(open + 1);
  const std::size_t sign = text.place.find_last_of("+-");
  text.function = text.place.substr(0, sign);
  if (sign != std::string_view::npos) text.offset = text.place.substr(sign);
  return true;
}

}  // namespace

std::optional<FrameText> ParseFrameText(std::string_view text) noexcept {
  const std::size_t bracket = text.rfind('[');
  if (bracket == std::string_view::npos || !TakeEnd(text, "]")) return std::nullopt;
  const auto address = ParseAddress(text.substr(bracket + 1));
  FrameText parts;
  if (!address || !SplitName(text.substr(0, bracket), parts)) return std::nullopt;
  parts.address = *address;
  return parts;
}

std::optional<OwnFrame> ParseOwnFrame(std::string_view content) noexcept {
  std::string_view text = content;
  if (!TakeEnd(text, ")") || !TakeEnd(text, crash_report::kNull) ||
      !TakeEnd(text, frame::kProgramCounter))
    return std::nullopt;
  const std::size_t at = text.rfind(frame::kStackPointer);
  if (at == std::string_view::npos || !TakeEnd(text, ",")) return std::nullopt;
  const std::string_view stackPointer = text.substr(at + frame::kStackPointer.size());
  text = text.substr(0, at);
  if (!TakeEnd(text, crash_report::kNull) || !TakeEnd(text, frame::kFunction)) return std::nullopt;
  const auto parts = ParseFrameText(text);
  return parts ? std::optional(OwnFrame{*parts, stackPointer}) : std::nullopt;
}

}  // namespace tarvo::report
