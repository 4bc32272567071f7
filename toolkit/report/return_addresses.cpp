#include "toolkit/report/return_addresses.h"

#include <charconv>

#include "tarvo/crash_report.h"
#include "toolkit/report/handler_frames.h"

namespace tarvo::report {
namespace {

namespace frame = crash_report::frame;

void AppendAdjusted(std::string& text, std::string_view line) {
  constexpr std::string_view kCounter = frame::kProgramCounterDigits;
  const std::size_t stackPointer = line.find(frame::kStackPointerDigits);
  const std::size_t at =
      line.find(kCounter, stackPointer == std::string_view::npos ? 0 : stackPointer);
  std::uint64_t address = 0;
  if (at != std::string_view::npos) {
    const char* digits = line.data() + at + kCounter.size();
    const auto [end, status] = std::from_chars(digits, line.data() + line.size(), address, 16);
    if (status == std::errc{} && address != 0) {
      text += line.substr(0, at);
      text += frame::kProgramCounter;
      AppendAddress(text, AdjustedReturnAddress(address));
      text.append(end, line.data() + line.size());
      return;
    }
  }
  text += line;
}

}  // namespace

std::vector<bool> FindReturnAddresses(std::span<const OwnFrame> frames,
                                      std::optional<std::uint64_t> fault) {
  std::vector<bool> isReturn(frames.size(), true);
  if (frames.empty()) return isReturn;
  isReturn[0] = false;
  if (frames.size() > 1 && frames[1].address == frames[0].address) isReturn[1] = false;
  std::vector<FrameName> names;
  names.reserve(frames.size());
  for (const OwnFrame& own : frames) names.push_back({own.module, own.function, own.address});
  const auto handler = FindHandlerFrames(names, fault);
  if (!handler || !handler->hasTrampoline || handler->Interrupted() == frames.size())
    return isReturn;
  isReturn[handler->end] = false;
  isReturn[handler->Interrupted()] = fault && *fault != frames[handler->Interrupted()].address;
  return isReturn;
}

std::string WithReturnAddressesAdjusted(std::span<const ReportLine> lines) {
  std::string text;
  bool isInnermost = true;
  for (const ReportLine& line : lines) {
    if (line.kind == LineKind::Thread) isInnermost = true;
    if (line.kind != LineKind::Frame || isInnermost) {
      text += line.text;
    } else {
      AppendAdjusted(text, line.text);
    }
    if (line.kind == LineKind::Frame) isInnermost = false;
  }
  return text;
}

}  // namespace tarvo::report
