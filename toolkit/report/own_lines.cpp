#include <algorithm>
#include <utility>

#include "tarvo/crash_report.h"
#include "toolkit/report/block_follower.h"
#include "toolkit/report/own_frame.h"
#include "toolkit/report/report_lines.h"

namespace tarvo::report {

namespace section = crash_report::section;

namespace {

/// Cuts an own report, several lines at once where a text holds line ends.
class OwnCutter {
 public:
  explicit OwnCutter(std::string_view report) {
    // Lines may be short: room that doubles would be more than the report takes.
    const auto count = static_cast<std::size_t>(std::ranges::count(report, '\n')) + 1;
    lines_.reserve(count);
    cut_.reserve(count);
    while (!report.empty()) lines_.push_back(TakeLine(report));
  }

  std::vector<ReportLine> Cut() {
    while (at_ < lines_.size()) Step();
    return std::move(cut_);
  }

 private:
  /// More lines than this are no name: a file's has 255 bytes, a path in practice no line end.
  static constexpr std::size_t kMaximumJoined = 16;

  void Step() {
    switch (reader_.Inside()) {
      case Block::Thread:
        if (const std::size_t count = FrameLines(); count != 0) return Take(LineKind::Frame, count);
        break;
      case Block::Variables:
        if (!IsLine(at_, kInnerDepth, "}") && !Content(lines_[at_]).empty())
          return Take(LineKind::Variable, VariableLines());
        break;
      case Block::Modules:
        if (StartsEntry(at_, kOuterDepth, crash_report::key::kModuleName)) {
          reader_.Read(Content(lines_[at_]));
          return Take(LineKind::Module,
                      LinesUntil([this](std::size_t i) { return IsLine(i, kOuterDepth, "{"); }));
        }
        break;
      case Block::Module:
        if (StartsEntry(at_, kInnerDepth, crash_report::key::kExecutable)) {
          return Take(LineKind::ModuleValue, LinesUntil([this](std::size_t i) {
                        return StartsEntry(i, kInnerDepth, crash_report::key::kBaseAddress);
                      }));
        }
        break;
      default:
        break;
    }
    Take(reader_.Read(Content(lines_[at_])), 1);
  }

  void Take(LineKind kind, std::size_t count) {
    cut_.push_back({kind, Joined(count)});
    at_ += count;
  }

  /// The next `count` lines, which stand one behind the other.
  [[nodiscard]] std::string_view Joined(std::size_t count) const noexcept {
    const std::string_view last = lines_[at_ + count - 1];
    return {lines_[at_].data(), last.data() + last.size()};
  }

  [[nodiscard]] bool IsLine(std::size_t i, std::size_t depth,
                            std::string_view text) const noexcept {
    return i < lines_.size() && OwnContent(lines_[i], depth) == text;
  }

  [[nodiscard]] bool StartsEntry(std::size_t i, std::size_t depth,
                                 std::string_view key) const noexcept {
    if (i >= lines_.size()) return false;
    const std::string_view content = OwnContent(lines_[i], depth);
    return content.starts_with(key) && content.substr(key.size()).starts_with(" =");
  }

  /// Whether line `i` opens or ends a block of a thread: a block's word has its brace below it.
  [[nodiscard]] bool IsStructure(std::size_t i) const noexcept {
    const bool isWord =
        IsLine(i, kInnerDepth, section::kRegisters) || IsLine(i, kInnerDepth, section::kVariables);
    return (isWord && IsLine(i + 1, kInnerDepth, "{")) || IsLine(i, kOuterDepth, "}") ||
           IsLine(i, kOuterDepth, "{");
  }

  [[nodiscard]] bool IsFrame(std::string_view text) const noexcept {
    return ParseOwnFrame(OwnContent(text, kInnerDepth)).has_value();
  }

  /// How many lines from here make one frame; 0 where none do.
  [[nodiscard]] std::size_t FrameLines() const noexcept {
    if (IsStructure(at_)) return 0;
    if (IsFrame(lines_[at_])) return 1;
    for (std::size_t count = 2; count <= kMaximumJoined && at_ + count <= lines_.size(); ++count) {
      const std::size_t last = at_ + count - 1;
      const bool isNext = lines_[last].starts_with("\t\t\t") && IsFrame(lines_[last]);
      if (isNext || IsStructure(last)) return 0;
      if (IsFrame(Joined(count))) return count;
    }
    return 0;
  }

  /// A value goes on up to the next variable, or the block's end with the empty line before it.
  [[nodiscard]] std::size_t VariableLines() const noexcept {
    return LinesUntil([this](std::size_t i) {
      const bool isEnd = IsLine(i, kInnerDepth, "}") ||
                         (Content(lines_[i]).empty() && IsLine(i + 1, kInnerDepth, "}"));
      const bool isEntry =
          lines_[i].starts_with("\t\t\t\t") &&
          OwnContent(lines_[i], kVariableDepth).find(" =") != std::string_view::npos;
      return isEnd || isEntry;
    });
  }

  /// How many lines stand before the next one for which `isNext(index)`; 1 where it is far.
  template <typename IsNext>
  [[nodiscard]] std::size_t LinesUntil(IsNext isNext) const noexcept {
    for (std::size_t count = 1; count <= kMaximumJoined && at_ + count < lines_.size(); ++count)
      if (isNext(at_ + count)) return count;
    return 1;
  }

  std::vector<std::string_view> lines_;
  std::size_t at_ = 0;
  BlockFollower reader_;
  std::vector<ReportLine> cut_;
};

}  // namespace

std::vector<ReportLine> CutOwnReport(std::string_view report) { return OwnCutter(report).Cut(); }

std::string_view OwnContent(std::string_view line, std::size_t depth) noexcept {
  if (line.ends_with('\n')) line.remove_suffix(1);
  const std::size_t tabs = std::min(line.find_first_not_of('\t'), line.size());
  if (tabs >= depth) return line.substr(depth);
  return line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
}

std::optional<KeyValue> SplitOwnEntry(std::string_view line, std::size_t depth) noexcept {
  const std::string_view content = OwnContent(line, depth);
  const std::size_t equals = content.find(" =");
  if (equals == std::string_view::npos) return std::nullopt;
  std::string_view value = content.substr(equals + 2);
  if (value.starts_with(' ')) value.remove_prefix(1);
  return KeyValue{content.substr(0, equals), value};
}

}  // namespace tarvo::report
