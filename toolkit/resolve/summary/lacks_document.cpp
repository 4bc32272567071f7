#include "toolkit/resolve/summary/lacks_document.h"

#include <algorithm>
#include <array>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/crash_report.h"
#include "toolkit/resolve/summary/tally.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

/// By ModuleOwner.
constexpr std::array<std::string_view, 3> kOwners = {"Application", "System", "CrashHandler"};

void NoteText(DataDictionary& entry, std::string_view key, const String& text) {
  std::size_t size = std::min(text.Size(), kLongestNotedText);
  const auto isWithinCharacter = [&] {
    return size < text.Size() && (static_cast<unsigned char>(text.View()[size]) & 0xC0) == 0x80;
  };
  while (size > 0 && isWithinCharacter()) --size;
  if (size > 0) entry.Set(String(key), String(text.View().substr(0, size)));
}

String NotedText(const DataDictionary& entry, std::string_view key) {
  const auto* text = entry.FindAs<String>(key);
  return text == nullptr ? String() : *text;
}

bool IsNotable(const Lacks::Lack& lack) {
  return lack.build.Size() <= kLongestNotedText && lack.module.Size() <= kLongestNotedText;
}

}  // namespace

DataArray LacksDocument(const Lacks& ofReport) {
  using Entry = std::pair<const Lacks::Lack*, const Lacks::Count*>;
  std::vector<Entry> entries;
  for (const auto& [lack, count] : ofReport.All())
    if (IsNotable(lack)) entries.emplace_back(&lack, &count);
  std::ranges::stable_sort(entries, std::ranges::greater{},
                           [](const Entry& entry) { return entry.second->frames; });
  if (entries.size() > kMostNotedLacks) entries.resize(kMostNotedLacks);
  DataArray document;
  for (const auto& [lack, count] : entries) {
    DataDictionary entry;
    entry.Set(String(property::kLackReason), String(OutcomeName(lack->outcome)));
    NoteText(entry, property::kLackPlatform, lack->platform);
    NoteText(entry, property::kBuild, lack->build);
    NoteText(entry, property::kLackModule, lack->module);
    NoteText(entry, property::kLackBundle, count->bundle);
    entry.Set(String(property::kLackFrames), count->frames);
    if (count->owner != ModuleOwner::Application)
      entry.Set(String(property::kLackOwner),
                String(kOwners[static_cast<std::size_t>(count->owner)]));
    NoteText(entry, property::kOutcomeError, count->reason);
    if (count->mayPass) entry.Set(String(property::kLackMayPass), true);
    document.Append(std::move(entry));
  }
  return document;
}

Lacks ReadLacks(const DataArray& document) {
  Lacks lacks;
  for (const DataValue& element : document) {
    const auto* entry = element.As<DataDictionary>();
    if (entry == nullptr) continue;
    const auto outcome = OutcomeOfName(NotedText(*entry, property::kLackReason));
    const auto* frames = entry->FindAs<std::uint64_t>(property::kLackFrames);
    if (!outcome || frames == nullptr) continue;
    Lacks::Count& count =
        lacks.Add({NotedText(*entry, property::kLackPlatform), NotedText(*entry, property::kBuild),
                   NotedText(*entry, property::kLackModule), *outcome},
                  *frames);
    count.bundle = NotedText(*entry, property::kLackBundle);
    count.reason = NotedText(*entry, property::kOutcomeError);
    count.mayPass = entry->Find(property::kLackMayPass) != nullptr;
    const auto* const owner =
        std::ranges::find(kOwners, NotedText(*entry, property::kLackOwner).View());
    if (owner != kOwners.end()) count.owner = static_cast<ModuleOwner>(owner - kOwners.begin());
  }
  return lacks;
}

}  // namespace tarvo::toolkit
