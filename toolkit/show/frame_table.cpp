#include "toolkit/show/frame_table.h"

#include <algorithm>

#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kWidestModule = 24;
/// Stands in place of the module of a caller.
constexpr std::string_view kInlinedInto = "inlined into";

std::string_view FirstCell(const FrameLine& line) {
  return line.isCaller ? kInlinedInto : std::string_view(line.module);
}

std::string Blanks(std::size_t count) { return std::string(count, ' '); }

std::string PlaceOf(const FrameLine& line) {
  if (line.count <= 1) return line.location;
  return line.location + (line.location.empty() ? "×" : "  ×") + std::to_string(line.count);
}

template <typename Text>
std::size_t Widest(std::span<const FrameLine> lines, Text text) {
  std::size_t widest = 0;
  for (const FrameLine& line : lines) widest = std::max(widest, TextWidth(text(line)));
  return widest;
}

}  // namespace

FrameTable::FrameTable(std::span<const FrameLine> lines, std::size_t width, bool shortens)
    : shortens_(shortens) {
  number_ = lines.empty() ? 1 : std::to_string(lines.back().number).size();
  number_ = std::max<std::size_t>(number_, 2);
  const std::size_t texts = width - std::min(width, kMark + number_ + 3 * kGap);
  module_ = std::min({Widest(lines, FirstCell), kWidestModule, texts / 3});
  const std::size_t rest = texts - module_;
  const std::size_t function = Widest(lines, [](const FrameLine& line) { return line.function; });
  // Places are cut to two fifths where both cannot be shown as a whole.
  location_ =
      std::min(Widest(lines, PlaceOf), std::max(rest * 2 / 5, rest - std::min(rest, function)));
  function_ = std::min(function, rest - location_);
}

std::string FrameTable::Cell(std::string_view text, std::size_t width, bool keepsEnd) const {
  if (!shortens_) return std::string(text);
  const std::string cut = Shortened(text, std::max<std::size_t>(width, 1), keepsEnd);
  // Of a path whole names stay, where there is more than the file's.
  const std::size_t slash = keepsEnd && cut.size() != text.size() ? cut.find('/') : 0;
  return slash == 0 || slash == std::string::npos ? cut : "…" + cut.substr(slash);
}

std::string FrameTable::Line(const FrameLine& line, const Painter& paint, bool isMarked,
                             bool isQuiet) const {
  const Painter plain(false);
  const Painter& inner = isQuiet ? plain : paint;
  const std::string number = line.isCaller ? "" : std::to_string(line.number);
  std::string text = isMarked ? inner(Style::Alarm, "→") + ' ' : Blanks(kMark);
  text += Blanks(number_ - std::min(number_, number.size())) + inner(Style::Quiet, number);
  // Blanks go in front of what follows, so that no line ends in them.
  std::size_t missing = kGap;
  const auto add = [&](const std::string& cell, std::size_t width, Style style) {
    if (width == 0) return;
    const std::size_t used = TextWidth(cell);
    if (!cell.empty()) text += Blanks(std::exchange(missing, 0)) + inner(style, cell);
    missing += width - std::min(width, used) + kGap;
  };
  add(Cell(FirstCell(line), module_, false), module_, line.isCaller ? Style::Quiet : Style::Module);
  add(Cell(line.function, function_, false), function_, isMarked ? Style::Title : Style::Plain);
  add(Cell(PlaceOf(line), location_, true), location_,
      line.hasSource ? Style::Place : Style::Quiet);
  return (isQuiet ? paint(Style::Quiet, text) : text) + '\n';
}

}  // namespace tarvo::toolkit
