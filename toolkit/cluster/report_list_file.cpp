#include "toolkit/cluster/report_list_file.h"

#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <set>
#include <thread>
#include <utility>

#include "json/json_writer.h"
#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/base/json_reader.h"
#include "toolkit/cluster/outcome_lines.h"
#include "toolkit/resolve/listing/report_identity.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

constexpr SourceFile kReportListFile{"command/cluster/report_list_file"};
constexpr const char* kBuilds = "Builds";
constexpr const char* kNormalize = "Normalize";
constexpr std::size_t kHashDigits = 64;

/// Whether JSON can hold the text as it is.
bool IsUtf8(const std::string& text) {
  rapidjson::StringStream in(text.c_str());
  rapidjson::GenericStringBuffer<rapidjson::UTF8<>> out;
  while (in.Tell() < text.size())
    if (!rapidjson::UTF8<>::Validate(in, out)) return false;
  return true;
}

DataDictionary LineOf(const ListedReport& listed) {
  DataDictionary line;
  line.Set(String(property::kOutcomeReport), listed.report.file.Text());
  line.Set(String(property::kOutcomeSize), listed.size);
  line.Set(String(property::kOutcomeHash), String(listed.hash));
  DataArray builds;
  for (const std::string& build : *listed.report.builds) builds.Append(String(build));
  line.Set(kBuilds, std::move(builds));
  if (listed.report.needsCopy) line.Set(kNormalize, true);
  return line;
}

/// Takes lines of a list. Reports of the same builds share them.
class ListReader {
 public:
  explicit ListReader(const Url& file) : file_(file) {}

  Result<void> Take(const TextLine& line) {
    const auto read = ReadJsonObject(line.text);
    if (!read) return Refuse(line);
    const auto* path = read->FindAs<String>(property::kOutcomeReport);
    const auto* size = read->FindAs<std::uint64_t>(property::kOutcomeSize);
    const auto* hash = read->FindAs<String>(property::kOutcomeHash);
    const auto* builds = read->FindAs<DataArray>(kBuilds);
    const auto* normalizes = read->FindAs<bool>(kNormalize);
    if (path == nullptr || size == nullptr || hash == nullptr || hash->Size() != kHashDigits ||
        builds == nullptr)
      return Refuse(line);
    Url file = Url::FromSystemPath(*path);
    if (!seen_.insert(file.Text().ToStdString()).second)
      return LineError(file_, line.number, "this report is listed above already");
    reports.push_back({{.file = file,
                        .place = std::move(file),
                        .builds = Shared(*builds),
                        .needsCopy = normalizes != nullptr && *normalizes},
                       *size,
                       hash->ToStdString()});
    return {};
  }

  std::vector<ListedReport> reports;

 private:
  Result<void> Refuse(const TextLine& line) const {
    return LineError(file_, line.number,
                     "found no report with size, hash and builds, as --write-list writes it");
  }

  std::shared_ptr<const Builds> Shared(const DataArray& array) {
    Builds builds;
    for (const DataValue& element : array) {
      const auto* build = element.As<String>();
      if (build != nullptr && builds.size() < kMaximumBuilds)
        builds.push_back(build->ToStdString());
    }
    std::shared_ptr<const Builds>& known = builds_[builds];
    if (known == nullptr) known = std::make_shared<const Builds>(std::move(builds));
    return known;
  }

  const Url& file_;
  std::set<std::string> seen_;
  std::map<Builds, std::shared_ptr<const Builds>> builds_;
};

}  // namespace

std::vector<ListedReport> IdentifyReports(ReportList& list, std::size_t threads) {
  std::vector<ListedReport> listed(list.reports.size());
  std::vector<String> errors(list.reports.size());
  std::atomic<std::size_t> next = 0;
  const auto identify = [&](std::size_t i) {
    const Url& file = list.reports[i].file;
    const Result<ReportIdentity> identity = IdentifyReport(file);
    if (!identity) {
      errors[i] = identity.GetError().Text();
    } else if (!IsUtf8(file.Text().ToStdString())) {
      errors[i] = "Its path is not UTF-8, so no list can name it.";
    } else {
      listed[i] = {std::move(list.reports[i]), identity->size, identity->hash};
    }
  };
  {
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < std::min(threads, listed.size()); ++i)
      workers.emplace_back([&] {
        for (std::size_t j = 0; (j = next++) < listed.size();) identify(j);
      });
  }
  for (std::size_t i = 0; i < errors.size(); ++i)
    if (!errors[i].IsEmpty()) list.failures.push_back({list.reports[i].file, errors[i]});
  std::erase_if(listed, [](const ListedReport& report) { return report.hash.empty(); });
  return listed;
}

Result<void> WriteReportList(FileService& files, const std::vector<ListedReport>& reports,
                             const Url& file) {
  const Result<Ref<OutputFile>> output = files.Create(file);
  if (!output) return output.GetError();
  for (const ListedReport& listed : reports) {
    const auto written = WriteJson(
        LineOf(listed), [&](std::string_view bytes) { return (*output)->Write(bytes); },
        JsonForm::Line);
    if (!written) return written;
  }
  return (*output)->Commit();
}

Result<std::vector<ListedReport>> ReadReportList(const Url& file) {
  ListReader reader(file);
  const auto read = ForEachLine(file, [&](const TextLine& line) { return reader.Take(line); });
  if (!read) return read.GetError();
  return std::move(reader.reports);
}

}  // namespace tarvo::toolkit
