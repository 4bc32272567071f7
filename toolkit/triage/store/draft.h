#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "toolkit/triage/reading/crash_record.h"
#include "toolkit/triage/store/compact_stack.h"

namespace tarvo::toolkit {

/// A variant and the stack that stands for it.
struct DraftVariant {
  std::string id{};
  std::string group{};
  std::string signature{};
  std::string crashClass{};
  std::vector<CompactEntry> stack{};  ///< of texts in the draft's pool
  std::size_t furtherFrames = 0;
  std::size_t namedFrames = 0;
};

/// A report, without its stack.
struct DraftReport {
  std::string hash{};
  std::vector<std::string> paths{};  ///< of the logs in which it was met
  const DraftVariant* variant = nullptr;
  std::optional<std::chrono::sys_seconds> time{};
  std::string build{};
  std::string system{};
  std::size_t namedFrames = 0;
  std::vector<MissingSymbols> missing{};
};

/// The records of one run, before they are stored: the stack of only one of each variant is kept,
/// the one with most names, the first of several.
class Draft {
 public:
  /// A report that is there already is taken again only where more of its frames have names.
  void Add(CrashRecord&& record);

  /// In the order in which they were first met.
  [[nodiscard]] const std::vector<std::unique_ptr<DraftReport>>& Reports() const {
    return reports_;
  }
  [[nodiscard]] const std::map<std::string, DraftVariant>& Variants() const { return variants_; }
  [[nodiscard]] const TextPool& Texts() const { return texts_; }

 private:
  const DraftVariant* AddVariant(CrashRecord& record);

  TextPool texts_{};
  std::map<std::string, DraftVariant> variants_{};
  std::vector<std::unique_ptr<DraftReport>> reports_{};
  std::unordered_map<std::string, DraftReport*> byHash_{};
};

}  // namespace tarvo::toolkit
