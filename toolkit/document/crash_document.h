#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/result.h"

/// A resolved crash log as it is shown: what its JSON document has of the known keys, with the
/// known types. All else is left out, so a document from anywhere can be shown.
namespace tarvo::toolkit {

/// Larger documents are refused.
inline constexpr std::uint64_t kMaximumDocumentBytes = std::uint64_t{256} << 20;

/// Keys and values in the document's order.
using TextPairs = std::vector<std::pair<std::string_view, std::string_view>>;

/// The value of `key`; empty when there is none.
[[nodiscard]] std::string_view FindText(const TextPairs& pairs, std::string_view key);

/// A function that another one is inlined into.
struct DocumentCaller {
  std::string_view function{};
  std::string_view sourceFile{};
  std::uint64_t sourceLine = 0;
  std::string_view sourceFileChecksum{};
  friend bool operator==(const DocumentCaller&, const DocumentCaller&) = default;
};

struct DocumentFrame {
  std::string_view module{};
  std::string_view function{};  ///< demangled by resolution, or as the report has it
  std::string_view sourceFile{};
  std::uint64_t sourceLine = 0;           ///< 0: not known
  std::string_view sourceFileChecksum{};  ///< when it was compiled: "md5:…"
  std::optional<std::uint64_t> address{};
  std::optional<std::uint64_t> symbolOffset{};  ///< bytes behind its symbol: no line is known
  std::vector<DocumentCaller> inlinedInto{};    ///< from the inside out
  bool isCrashed = false;
};

struct DocumentThread {
  std::optional<std::uint64_t> number{};
  TextPairs variables{};
  TextPairs registers{};
  std::vector<DocumentFrame> frames{};
  bool isCrashed = false;
};

struct DocumentModule {
  std::string_view name{};
  std::string_view build{};
  std::string_view path{};  ///< on the machine of the crash
  std::uint64_t baseAddress = 0;
  std::uint64_t size = 0;
  bool isExecutable = false;
};

/// What could not be read of the report.
struct DocumentDamage {
  std::uint64_t line = 0;
  std::string_view expected{};
  bool isCut = false;  ///< the report ends here
};

/// All texts live as long as `storage`, and are raw: not to be printed but through SafeText.
struct CrashDocument {
  TextPairs outcome{};  ///< what resolution says of the report: its texts
  TextPairs application{};
  TextPairs computer{};
  TextPairs exception{};
  std::vector<DocumentThread> threads{};
  std::vector<DocumentModule> modules{};
  TextPairs scenes{};  ///< names and paths
  std::vector<std::string_view> criticalLog{};
  std::vector<DocumentDamage> damage{};
  std::shared_ptr<const void> storage{};
};

/// Reads a document. `name` is what errors call it. An illegal-argument error with the line and
/// column when the text is no JSON in UTF-8, and one that says what was found when it is no
/// resolved crash log: no object with an array "Threads" or an outcome of resolution, or a report
/// that is not resolved yet.
/// Takes some three times the size of the text in memory; nesting costs nothing.
Result<CrashDocument> ParseCrashDocument(std::string_view text, const std::string& name);

}  // namespace tarvo::toolkit
