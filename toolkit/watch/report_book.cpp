#include "toolkit/watch/report_book.h"

#include <algorithm>
#include <utility>

#include "toolkit/resolve/listing/freshness.h"
#include "toolkit/watch/news_text.h"

namespace tarvo::toolkit {

bool ReportBook::Note(const std::string& path, const BatchRecord& record, Time now) {
  resolved_[path] = &*kinds_.insert(record.archives).first;
  if (!record.isTroubled) {
    troubles_.erase(path);
    return true;
  }
  const auto [known, isNew] = troubles_.try_emplace(path);
  Trouble& trouble = known->second;
  if (!isNew) trouble.pause = std::min(2 * trouble.pause, kLongestPause);
  trouble.next = now + trouble.pause;
  std::string news = NewsLine(record.news);
  return std::exchange(trouble.news, news) != news;
}

void ReportBook::Forget(const std::string& path) {
  resolved_.erase(path);
  troubles_.erase(path);
}

std::vector<std::string> ReportBook::TakeDue(Time now) {
  std::vector<std::string> due;
  for (auto& [path, trouble] : troubles_) {
    if (trouble.next > now) continue;
    due.push_back(path);
    trouble.next = Time::max();
  }
  return due;
}

std::vector<std::string> ReportBook::TakeOutdated(ArchiveTree& archives) {
  std::set<const ArchiveIdentities*> outdated;
  for (const ArchiveIdentities& kind : kinds_)
    if (std::ranges::any_of(kind, [&](const auto& build) {
          return IdentitiesOf(archives, build.first) != build.second;
        }))
      outdated.insert(&kind);
  std::vector<std::string> reports;
  if (outdated.empty()) return reports;
  std::erase_if(resolved_, [&](const auto& report) {
    const bool isOutdated = outdated.contains(report.second);
    if (isOutdated) reports.push_back(report.first);
    return isOutdated;
  });
  std::erase_if(kinds_, [&](const ArchiveIdentities& kind) { return outdated.contains(&kind); });
  std::ranges::sort(reports);
  return reports;
}

}  // namespace tarvo::toolkit
