#include "toolkit/triage/result/triage_document.h"

#include <cstdio>

#include "toolkit/triage/grouping/fingerprint.h"
#include "toolkit/triage/reading/crash_record.h"

namespace tarvo::toolkit {
namespace {

/// "2026-11-21T13:09:40Z".
std::string Time(const std::optional<std::chrono::sys_seconds>& time) {
  if (!time) return std::string(kNotTold);
  const auto day = std::chrono::floor<std::chrono::days>(*time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(*time - day);
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02ld:%02ld:%02ldZ",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<long>(clock.hours().count()),
                static_cast<long>(clock.minutes().count()),
                static_cast<long>(clock.seconds().count()));
  return text;
}

DataArray Texts(const std::vector<std::string>& texts) {
  DataArray array;
  for (const std::string& text : texts) array.Append(String(text));
  return array;
}

DataDictionary CountsDocument(const std::vector<NamedCount>& counts) {
  DataDictionary dictionary;
  for (const NamedCount& count : counts) dictionary.Set(count.name, std::uint64_t{count.count});
  return dictionary;
}

DataDictionary VariantDocument(const TriageVariant& variant) {
  DataDictionary document;
  document.Set("Id", String(variant.id));
  document.Set("Frames", Texts(variant.frames));
  document.Set("Count", std::uint64_t{variant.count});
  return document;
}

DataArray Marks(const TriageGroup& group) {
  DataArray marks;
  if (group.isNotStored) marks.Append("NotStored");
  if (group.isNew) marks.Append("New");
  if (group.isBack) marks.Append("Back");
  if (group.isRising) marks.Append("Rising");
  return marks;
}

DataDictionary GroupDocument(const TriageGroup& group) {
  DataDictionary document;
  document.Set("Id", String(group.id));
  document.Set("Signature", String(group.signature));
  document.Set("Class", String(group.crashClass));
  document.Set("Count", std::uint64_t{group.count});
  document.Set("First", String(Time(group.first)));
  document.Set("Last", String(Time(group.last)));
  document.Set("Marks", Marks(group));
  document.Set("Builds", CountsDocument(group.builds));
  document.Set("Systems", CountsDocument(group.systems));
  document.Set("Reports", Texts(group.reports));
  DataArray variants;
  for (const TriageVariant& variant : group.variants) variants.Append(VariantDocument(variant));
  document.Set("Variants", std::move(variants));
  document.Set("SimilarTo", Texts(group.similarTo));
  document.Set("Aliases", Texts(group.formerIds));
  document.Set("MissingSymbols", CountsDocument(group.missing));
  return document;
}

}  // namespace

DataDictionary TriageDocument(const TriageResult& result) {
  DataDictionary document;
  document.Set("FingerprintVersion", std::int64_t{kFingerprintVersion});
  DataArray groups;
  for (const TriageGroup& group : result.groups) groups.Append(GroupDocument(group));
  document.Set("Groups", std::move(groups));
  DataArray skipped;
  for (const SkippedLog& log : result.skipped) {
    DataDictionary entry;
    entry.Set("Report", String(log.path));
    entry.Set("Error", String(log.reason));
    skipped.Append(std::move(entry));
  }
  document.Set("Skipped", std::move(skipped));
  return document;
}

}  // namespace tarvo::toolkit
