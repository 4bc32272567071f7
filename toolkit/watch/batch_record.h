#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/data_dictionary.h"

namespace tarvo::toolkit {

/// The archives that a report's symbols were looked for in: by build their identities, sorted.
using ArchiveIdentities = std::map<std::string, std::vector<std::string>>;

/// What the process of a batch tells of one report, as a line of JSON.
struct BatchRecord {
  std::size_t place = 0;    ///< of the report in the batch
  bool isTroubled = false;  ///< by something that may pass, as a full disk: to be done again
  ArchiveIdentities archives{};
  DataDictionary news{};  ///< for people (news_text.h); empty: there is nothing new
};

[[nodiscard]] std::string BatchRecordLine(const BatchRecord& record);
/// Nothing where the line is none.
[[nodiscard]] std::optional<BatchRecord> ReadBatchRecord(std::string_view line);

}  // namespace tarvo::toolkit
