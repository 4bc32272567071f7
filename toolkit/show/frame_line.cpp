#include "toolkit/show/frame_line.h"

#include <algorithm>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/document/demangled_name.h"

namespace tarvo::toolkit {
namespace {

std::string SourceLocation(std::string_view file, std::uint64_t line) {
  if (file.starts_with("./")) file.remove_prefix(2);
  std::string location = SafeText(file);
  if (!file.empty() && line != 0) location += ':' + std::to_string(line);
  return location;
}

std::string Location(const DocumentFrame& frame) {
  if (!frame.sourceFile.empty()) return SourceLocation(frame.sourceFile, frame.sourceLine);
  return frame.address ? Format("0x@{x}", *frame.address).ToStdString() : std::string();
}

void AddCallers(const DocumentFrame& frame, std::size_t number, std::vector<FrameLine>& lines) {
  for (const DocumentCaller& caller : frame.inlinedInto) {
    lines.push_back({.number = number,
                     .count = 0,
                     .function = SafeText(Demangled(caller.function)),
                     .location = SourceLocation(caller.sourceFile, caller.sourceLine),
                     .hasSource = !caller.sourceFile.empty(),
                     .isCaller = true});
  }
}

/// A function of which only the symbol is known is shown with the distance from it, as one whose
/// symbols were not looked up: "qsort + 0x1c".
std::string Function(const DocumentFrame& frame) {
  std::string function = SafeText(Demangled(frame.function));
  if (frame.symbolOffset && *frame.symbolOffset != 0)
    function += Format(" + 0x@{x}", *frame.symbolOffset).ToStdString();
  return function;
}

FrameLine MakeLine(const DocumentFrame& frame, std::size_t number) {
  return {number,
          1,
          SafeText(frame.module),
          Function(frame),
          Location(frame),
          !frame.sourceFile.empty()};
}

bool AreEqual(const DocumentFrame& a, const DocumentFrame& b) {
  // Frames of one source line differ in their addresses, which nobody sees.
  return a.module == b.module && a.function == b.function && a.sourceFile == b.sourceFile &&
         a.sourceLine == b.sourceLine && a.inlinedInto == b.inlinedInto &&
         (a.address == b.address || !a.sourceFile.empty());
}

}  // namespace

std::vector<FrameLine> MakeFrameLines(std::span<const DocumentFrame> frames, std::size_t crashed,
                                      bool fold, std::size_t most) {
  std::vector<FrameLine> lines;
  std::size_t row = 0;  // the line of the frame before
  for (std::size_t i = 0; i < frames.size(); ++i) {
    if (fold && i > 0 && i != crashed && AreEqual(frames[i - 1], frames[i])) {
      ++lines[row].count;
    } else if (lines.size() >= most) {
      break;
    } else {
      row = lines.size();
      lines.push_back(MakeLine(frames[i], i));
      AddCallers(frames[i], i, lines);
    }
  }
  return lines;
}

}  // namespace tarvo::toolkit
