#include "toolkit/cluster/outcome_lines.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/base/json_reader.h"
#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

constexpr SourceFile kOutcomeLines{"command/cluster/outcome_lines"};
constexpr std::size_t kReadBytes = 1 << 18;
/// With this a line of results begins, as `tarvo resolve` writes it.
constexpr std::string_view kLineStart = R"({"Outcome":)";

std::string TextOf(const DataDictionary& object, std::string_view key) {
  const auto* text = object.FindAs<String>(key);
  return text == nullptr ? std::string() : text->ToStdString();
}

/// Reads the outcome alone, however long the line is. No report where there is none.
OutcomeLine OutcomeOfLine(std::string_view line) {
  if (!line.starts_with(kLineStart)) return {};
  auto outcome = ReadJsonObject(line.substr(kLineStart.size()), BehindJson::Anything);
  if (!outcome) return {};
  return {.report = TextOf(*outcome, property::kOutcomeReport),
          .hash = TextOf(*outcome, property::kOutcomeHash),
          .isFailed = outcome->Find(property::kOutcomeError) != nullptr,
          .outcome = *std::move(outcome),
          .line = {}};
}

}  // namespace

Error LineError(const Url& file, std::size_t line, std::string_view reason) {
  return Error::File(kOutcomeLines.Here(), Format("\"@\", line @: @", file, line, String(reason)),
                     file);
}

Result<void> ForEachLine(const Url& file,
                         const std::function<Result<void>(const TextLine&)>& take) {
  const Result<RegularFile> opened = OpenRegularFile(file.SystemPath().ToStdString());
  if (!opened) return opened.GetError();
  std::string read;
  std::size_t number = 0;
  for (bool isEnd = false; !isEnd;) {
    const std::size_t before = read.size();
    read.resize(before + kReadBytes);
    const std::size_t count = std::fread(read.data() + before, 1, kReadBytes, opened->file.get());
    if (count < kReadBytes && std::ferror(opened->file.get()) != 0)
      return LineError(file, number + 1, std::strerror(errno));
    read.resize(before + count);
    isEnd = count < kReadBytes;
    std::size_t start = 0;
    for (std::size_t end = read.find('\n', before); end != std::string::npos;
         start = end + 1, end = read.find('\n', start))
      if (auto taken = take({std::string_view(read).substr(start, end - start), ++number}); !taken)
        return taken;
    read.erase(0, start);
    if (read.size() > kLongestLine) return LineError(file, number + 1, "it is too long");
  }
  return read.empty() ? Result<void>() : take({read, number + 1, false});
}

Result<void> ForEachOutcome(const Url& file, CutEnd cutEnd,
                            const std::function<Result<void>(const OutcomeLine&)>& take) {
  return ForEachLine(file, [&](const TextLine& line) -> Result<void> {
    if (!line.isWhole && cutEnd == CutEnd::PassedOver) return {};
    if (!line.isWhole) return LineError(file, line.number, "the file ends within this line");
    OutcomeLine outcome = OutcomeOfLine(line.text);
    if (outcome.report.empty())
      return LineError(file, line.number, "found no outcome of a report, as resolve writes it");
    outcome.line = {line.text.data(), line.text.size() + 1};
    return take(outcome);
  });
}

}  // namespace tarvo::toolkit
