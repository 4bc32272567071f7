#include "configuration/configuration.h"

#include <algorithm>
#include <utility>

#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kConfiguration{"tarvo/source/configuration"};

/// What an assignment holds, for the message that refuses it.
std::string FoundText(const Assignment& assignment) {
  if (const auto* text = std::get_if<PlainText>(&assignment.value)) return '"' + text->text + '"';
  if (const auto* foreign = std::get_if<ForeignValue>(&assignment.value)) return foreign->what;
  const auto& value = std::get<ConfigurationValue>(assignment.value);
  const std::string text = ValueText(value);
  return std::holds_alternative<String>(value) ? "the text \"" + text + '"' : text;
}

std::optional<ConfigurationValue> Read(const ConfigurationRecord& record,
                                       const Assignment& assignment) {
  if (const auto* text = std::get_if<PlainText>(&assignment.value))
    return ParseValue(record, text->text);
  if (const auto* value = std::get_if<ConfigurationValue>(&assignment.value))
    return AcceptValue(record, *value);
  return std::nullopt;
}

}  // namespace

Result<void> Configuration::Declare(const std::string& owner, const ConfigurationTable& table) {
  for (const ConfigurationRecord& record : table.Records()) {
    if (const Entry* declared = Find(record.name); declared != nullptr) {
      return Error::IllegalState(
          kConfiguration.Here(),
          Format("The configuration entry @ is declared by @ and again by @.", record.name,
                 declared->owner, owner));
    }
    entries_.push_back(
        {.owner = owner, .record = record, .value = DefaultValue(record), .source = {}});
  }
  return {};
}

Result<void> Configuration::Assign(const std::vector<Assignment>& assignments) {
  for (const Assignment& assignment : assignments)
    if (auto assigned = Assign(assignment); !assigned) return assigned;
  return {};
}

std::vector<Error> Configuration::AssignUsable(const std::vector<Assignment>& assignments) {
  std::vector<Error> errors;
  for (const Assignment& assignment : assignments)
    if (const auto assigned = Assign(assignment); !assigned) errors.push_back(assigned.GetError());
  return errors;
}

Result<void> Configuration::Assign(const Assignment& assignment) {
  Entry* entry = Find(assignment.name);
  if (entry == nullptr) {
    return Error::IllegalArgument(
        kConfiguration.Here(),
        Format("There is no configuration entry \"@\" (@).", assignment.name, assignment.source));
  }
  auto value = Read(entry->record, assignment);
  if (!value) {
    return Error::IllegalArgument(
        kConfiguration.Here(),
        Format("The configuration entry @ does not accept @ (@): expected @.", assignment.name,
               FoundText(assignment), assignment.source, AcceptedText(entry->record)));
  }
  entry->value = *std::move(value);
  entry->source = assignment.source;
  return {};
}

void Configuration::Apply() {
  for (const Entry& entry : entries_) StoreValue(entry.record, entry.value);
}

Result<String> Configuration::QueryString(std::string_view name) const {
  const Entry* at = Find(name);
  if (at == nullptr || at->record.kind != ConfigurationKind::String) {
    return Error::IllegalArgument(kConfiguration.Here(),
                                  Format("There is no String configuration entry \"@\".", name));
  }
  if (at->source.empty()) {
    return Error::IllegalArgument(kConfiguration.Here(),
                                  Format("The configuration entry @ is not set.", name));
  }
  return std::get<String>(at->value);
}

std::vector<ConfigurationEntry> Configuration::List() const {
  std::vector<ConfigurationEntry> list;
  for (const auto& [owner, record, value, source] : entries_) {
    list.push_back({.owner = owner,
                    .name = record.name,
                    .kind = KindText(record.kind),
                    .fallback = ValueText(DefaultValue(record)),
                    .range = RangeText(record),
                    .value = ValueText(value),
                    .source = source.empty() ? "default" : source,
                    .help = record.help});
  }
  return list;
}

std::string_view Configuration::SourceOf(std::string_view name) const {
  const Entry* entry = Find(name);
  return entry == nullptr ? std::string_view() : entry->source;
}

const Configuration::Entry* Configuration::Find(std::string_view name) const {
  const auto at = std::ranges::find(
      entries_, name, [](const Entry& entry) { return std::string_view(entry.record.name); });
  return at == entries_.end() ? nullptr : &*at;
}

Configuration::Entry* Configuration::Find(std::string_view name) {
  return const_cast<Entry*>(std::as_const(*this).Find(name));
}

}  // namespace tarvo
