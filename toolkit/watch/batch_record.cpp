#include "toolkit/watch/batch_record.h"

#include <cstdint>
#include <utility>

#include "toolkit/base/json_reader.h"
#include "toolkit/watch/news_text.h"

namespace tarvo::toolkit {
namespace {

constexpr const char* kPlace = "Place";
constexpr const char* kTroubled = "Troubled";
constexpr const char* kArchives = "Archives";
constexpr const char* kNews = "News";

DataDictionary ToDictionary(const ArchiveIdentities& archives) {
  DataDictionary builds;
  for (const auto& [build, identities] : archives) {
    DataArray list;
    for (const std::string& identity : identities) list.Append(String(identity));
    builds.Set(String(build), std::move(list));
  }
  return builds;
}

ArchiveIdentities FromDictionary(const DataDictionary& builds) {
  ArchiveIdentities archives;
  for (const DataDictionary::Entry& build : builds) {
    std::vector<std::string>& identities = archives[build.key.ToStdString()];
    const auto* list = build.value.As<DataArray>();
    for (std::size_t i = 0; list != nullptr && i < list->Size(); ++i)
      if (const auto* identity = (*list)[i].As<String>())
        identities.push_back(identity->ToStdString());
  }
  return archives;
}

}  // namespace

std::string BatchRecordLine(const BatchRecord& record) {
  DataDictionary line;
  line.Set(kPlace, static_cast<std::uint64_t>(record.place));
  line.Set(kTroubled, record.isTroubled);
  line.Set(kArchives, ToDictionary(record.archives));
  line.Set(kNews, record.news);
  return NewsLine(line);
}

std::optional<BatchRecord> ReadBatchRecord(std::string_view line) {
  const auto read = ReadJsonObject(line);
  const auto* place = read ? read->FindAs<std::uint64_t>(kPlace) : nullptr;
  const auto* isTroubled = read ? read->FindAs<bool>(kTroubled) : nullptr;
  const auto* archives = read ? read->FindAs<DataDictionary>(kArchives) : nullptr;
  const auto* news = read ? read->FindAs<DataDictionary>(kNews) : nullptr;
  if (place == nullptr || isTroubled == nullptr || archives == nullptr || news == nullptr)
    return std::nullopt;
  return BatchRecord{.place = *place,
                     .isTroubled = *isTroubled,
                     .archives = FromDictionary(*archives),
                     .news = *news};
}

}  // namespace tarvo::toolkit
