#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tarvo/framework.h"
#include "toolkit/resolve/listing/report_list.h"
#include "toolkit/resolve/summary/lacks.h"
#include "toolkit/store/archive_tree.h"

namespace tarvo::toolkit {

/// What a document says it was made of (crash_report.h, "Outcome").
struct MadeOf {
  std::uint64_t size = 0;  ///< of the report, in bytes
  std::string hash;        ///< of the report
  /// By build the identities of its archives, sorted; none where there was none.
  std::map<std::string, std::vector<std::string>> archives;
  /// By place outside archives where symbols were missed, what stood there (IdentifyPlace).
  std::map<std::string, std::string> missed{};
  std::optional<std::uint64_t> resolved;  ///< frames that were resolved
  std::string error;                      ///< why the report could not be; else empty
  std::optional<Lacks> lacks{};           ///< what it lacks; nothing: it does not say
};

/// Reads what the document beside `place`, a report's, was made of, from its start; nothing where
/// there is no such document, or it does not say.
[[nodiscard]] std::optional<MadeOf> ReadMadeOf(const Url& place);

/// The identities of the archives of `build`, sorted.
[[nodiscard]] std::vector<std::string> IdentitiesOf(ArchiveTree& archives,
                                                    const std::string& build);

/// What the document beside the report's place was made of, where resolving `report` again would
/// give the same: it has the same content, the archives of its builds are the same, there or not
/// there, none could only not be unpacked for the machine's sake, and nothing else stands where
/// symbols were missed. Whatever times report and archives have.
[[nodiscard]] std::optional<MadeOf> FindUpToDate(const Report& report, ArchiveTree& archives);

}  // namespace tarvo::toolkit
