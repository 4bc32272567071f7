#include "toolkit/resolve/listing/freshness.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <utility>

#include "tarvo/crash_report.h"
#include "tarvo/report/resolve.h"
#include "toolkit/base/json_reader.h"
#include "toolkit/base/place_identity.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/resolve/listing/report_identity.h"
#include "toolkit/resolve/summary/lacks_document.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

/// An outcome names a build or two; one that is larger than this is not read.
constexpr std::size_t kMaximumOutcomeBytes = 1 << 20;

std::string StartOf(const Url& file) {
  const auto opened = OpenRegularFile(file.SystemPath().ToStdString());
  if (!opened) return {};
  std::string text(std::min<std::uint64_t>(opened->size, kMaximumOutcomeBytes), '\0');
  text.resize(std::fread(text.data(), 1, text.size(), opened->file.get()));
  return text;
}

/// What stands behind `word`, which blanks may precede; nothing where another word does.
std::optional<std::string_view> Behind(std::string_view text, std::string_view word) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  if (!text.starts_with(word)) return std::nullopt;
  return text.substr(word.size());
}

std::string TextOf(const DataDictionary& object, std::string_view key) {
  const auto* text = object.FindAs<String>(key);
  return text == nullptr ? std::string() : text->ToStdString();
}

std::optional<std::uint64_t> NumberOf(const DataDictionary& object, std::string_view key) {
  const auto* number = object.FindAs<std::uint64_t>(key);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

std::map<std::string, std::string> MissedIn(const DataDictionary& outcome) {
  std::map<std::string, std::string> missed;
  const auto* entries = outcome.FindAs<DataArray>(property::kOutcomeMissed);
  const std::size_t count = entries == nullptr ? 0 : std::min(entries->Size(), kMostNotedPlaces);
  for (std::size_t i = 0; i < count; ++i)
    if (const auto* entry = (*entries)[i].As<DataDictionary>())
      missed.emplace(TextOf(*entry, property::kOutcomeFile),
                     TextOf(*entry, property::kOutcomeIdentity));
  return missed;
}

MadeOf Parse(const DataDictionary& outcome) {
  MadeOf made{.size = NumberOf(outcome, property::kOutcomeSize).value_or(0),
              .hash = TextOf(outcome, property::kOutcomeHash),
              .archives = {},
              .missed = MissedIn(outcome),
              .resolved = NumberOf(outcome, property::kOutcomeResolved),
              .error = TextOf(outcome, property::kOutcomeError)};
  if (const auto* lacks = outcome.FindAs<DataArray>(property::kOutcomeLacks))
    made.lacks = ReadLacks(*lacks);
  const auto* archives = outcome.FindAs<DataArray>(property::kOutcomeArchives);
  if (archives == nullptr) return made;
  for (const DataValue& element : *archives) {
    const auto* archive = element.As<DataDictionary>();
    if (archive == nullptr) continue;
    auto& identities = made.archives[TextOf(*archive, property::kBuild)];
    const std::string identity = TextOf(*archive, property::kOutcomeIdentity);
    if (!identity.empty()) identities.push_back(identity);
  }
  for (auto& [build, identities] : made.archives) std::ranges::sort(identities);
  return made;
}

}  // namespace

std::optional<MadeOf> ReadMadeOf(const Url& place) {
  const std::string start = StartOf(report::DocumentOf(place));
  auto rest = Behind(start, "{");
  if (rest) rest = Behind(*rest, '"' + std::string(property::kOutcome) + '"');
  if (rest) rest = Behind(*rest, ":");
  if (!rest) return std::nullopt;
  const auto outcome = ReadJsonObject(*rest, BehindJson::Anything);
  return outcome ? std::optional(Parse(*outcome)) : std::nullopt;
}

std::vector<std::string> IdentitiesOf(ArchiveTree& archives, const std::string& build) {
  std::vector<std::string> identities;
  for (const ArchiveState& archive : archives.Of(build)) identities.push_back(archive.identity);
  std::ranges::sort(identities);
  return identities;
}

std::optional<MadeOf> FindUpToDate(const Report& report, ArchiveTree& archives) {
  std::error_code missing;
  auto made = ReadMadeOf(report.place);
  if (!made || made->hash.empty()) return std::nullopt;
  // Of a report that could not be resolved there is neither.
  if (made->error.empty() && !made->lacks) return std::nullopt;
  if (made->lacks &&
      std::ranges::any_of(made->lacks->All(), [](const auto& lack) { return lack.second.mayPass; }))
    return std::nullopt;
  if (made->error.empty() &&
      !std::filesystem::exists(report::CopyOf(report.place).SystemPath().ToStdString(), missing))
    return std::nullopt;
  if (std::ranges::any_of(made->archives, [&](const auto& archive) {
        return IdentitiesOf(archives, archive.first) != archive.second;
      }))
    return std::nullopt;
  if (std::ranges::any_of(made->missed, [](const auto& place) {
        return IdentifyPlace(place.first) != place.second;
      }))
    return std::nullopt;
  const Result<ReportIdentity> identity = IdentifyReport(report.file);
  const bool isSame = identity && identity->size == made->size && identity->hash == made->hash;
  return isSame ? std::move(made) : std::nullopt;
}

}  // namespace tarvo::toolkit
