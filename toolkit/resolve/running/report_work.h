#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

#include "tarvo/data_dictionary.h"
#include "tarvo/registration.h"
#include "tarvo/string.h"
#include "toolkit/resolve/summary/module_facts.h"
#include "toolkit/resolve/summary/tally.h"
#include "toolkit/store/archive_cache.h"

namespace tarvo::toolkit {

/// What a thread learns of the report that it resolves, and what it does with the outcome.
struct ReportWork {
  Tally tally;
  ModuleFacts modules;      ///< of the report
  std::set<String> builds;  ///< whose symbols frames asked for
  String build;             ///< of the frame before, or empty
  String module;            ///< that they ask for now
  /// Places outside archives where symbols or parts of them were looked for and were not, or not
  /// the right ones, and what stood there (IdentifyPlace); at most kMostNotedPlaces.
  std::map<std::string, std::string> missed{};

  /// Given the text that is resolved, before that. May be empty.
  std::function<void(const String& text)> onTextRead{};
  /// Given the resolved crash log, which it may change; whether it is to be written beside the
  /// report. Empty: it is.
  std::function<bool(DataDictionary& crashLog)> onResolved{};
};

/// Makes `work` the calling thread's for as long as this lives.
class ReportWorkScope {
 public:
  explicit ReportWorkScope(ReportWork& work) noexcept;
  ~ReportWorkScope();
  ReportWorkScope(const ReportWorkScope&) = delete;
  ReportWorkScope& operator=(const ReportWorkScope&) = delete;
};

/// The component through which the crash handler's module fills a thread's ReportWork.
[[nodiscard]] ComponentRecord ReportWorkComponent();

/// Notes such a place for the report that the calling thread resolves.
void NoteMissed(const std::string& place, const std::string& identity);

/// From now on what is unpacked of archives that have changed is retired before a report's frames
/// are resolved. `cache` lives until this is called with null.
void RetireOutdatedIn(ArchiveCache* cache);

}  // namespace tarvo::toolkit
