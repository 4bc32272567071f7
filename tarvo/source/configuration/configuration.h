#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "configuration/configuration_source.h"
#include "tarvo/configuration.h"
#include "tarvo/host/host.h"

namespace tarvo {

/// All declared entries with their values.
///
/// Filled once, before any module is initialised: Declare each table, Assign each source from the
/// weakest to the strongest, then Apply. Read-only after that, from any thread.
class Configuration final : public ConfigurationService {
 public:
  /// Adds a table's entries, which must outlive this object. An illegal-state error when a name was
  /// declared before.
  Result<void> Declare(const std::string& owner, const ConfigurationTable& table);

  /// Takes a source's values; those of a stronger one follow. An illegal-argument error that names
  /// entry, source and what is accepted when an entry is unknown or does not accept its value.
  Result<void> Assign(const std::vector<Assignment>& assignments);

  /// The same for a source that must not end the start: takes what can be taken, and returns the
  /// errors of the others.
  std::vector<Error> AssignUsable(const std::vector<Assignment>& assignments);

  /// Gives every variable its value.
  void Apply();

  Result<String> QueryString(std::string_view name) const override;

  /// The source of an entry's value; empty while the default holds, and without such an entry.
  [[nodiscard]] std::string_view SourceOf(std::string_view name) const;

  [[nodiscard]] std::vector<ConfigurationEntry> List() const;

 private:
  struct Entry {
    std::string owner;
    ConfigurationRecord record;
    ConfigurationValue value;
    std::string source;  ///< empty while the default holds
  };

  Result<void> Assign(const Assignment& assignment);
  [[nodiscard]] Entry* Find(std::string_view name);
  [[nodiscard]] const Entry* Find(std::string_view name) const;

  std::vector<Entry> entries_;
};

}  // namespace tarvo
