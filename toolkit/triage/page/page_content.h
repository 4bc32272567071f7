#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What the triage page shows. All texts are raw: the page makes them safe. Times are UTC.
namespace tarvo::toolkit {

/// A function that another one is inlined into.
struct PageCaller {
  std::string function{};
  std::string sourceFile{};
  std::uint64_t sourceLine = 0;  ///< 0: not known
};

struct PageFrame {
  std::string module{};
  std::string function{};  ///< empty: not resolved
  std::string sourceFile{};
  std::uint64_t sourceLine = 0;           ///< 0: not known
  std::optional<std::uint64_t> offset{};  ///< from the module's start, for what is not resolved
  std::vector<PageCaller> inlinedInto{};  ///< from the inside out
  bool isCrashing = false;                ///< the frame whose code crashed
};

/// How often something with a name occurs: in reports or, of missing symbols, in frames.
struct PageCount {
  std::string name{};  ///< empty: the reports do not tell
  std::size_t count = 0;
};

/// Reports of one day and build.
struct PageDay {
  std::chrono::sys_days day{};
  std::string build{};
  std::size_t count = 0;
};

/// Reports of a group whose first frames are the same.
struct PageVariant {
  std::string id{};
  std::vector<std::string> frames{};  ///< functions, from the crash outwards
  std::size_t count = 0;
};

/// One group. Its lists may be longer than what the page shows of them, in the order of their
/// worth: the page shows their beginnings and counts the rest.
struct PageGroup {
  std::string id{};
  std::vector<std::string> formerIds{};  ///< links to these lead here too
  std::string signature{};
  std::string crashClass{};
  std::size_t count = 0;             ///< reports
  std::vector<PageDay> days{};       ///< of the reports whose time is known, in any order
  std::vector<PageCount> builds{};   ///< oldest first
  std::vector<PageCount> systems{};  ///< most frequent first
  std::optional<std::chrono::sys_seconds> first{};
  std::optional<std::chrono::sys_seconds> last{};
  bool isNew = false;     ///< nothing older than the newest build has it
  bool isBack = false;    ///< builds between its older and its newest reports do not have it
  bool isRising = false;  ///< it has become more frequent of late
  std::vector<PageFrame> stack{};           ///< of the representative report
  std::size_t furtherFrames = 0;            ///< of that report, not in `stack`
  std::vector<PageVariant> variants{};      ///< most frequent first
  std::vector<std::string> reports{};       ///< files, as far as they are to be shown
  std::vector<std::string> similar{};       ///< ids of groups, the most similar first
  std::vector<PageCount> missingSymbols{};  ///< modules and their builds, by frames that lack them
};

struct PageContent {
  std::string title = "Crashes";
  std::optional<std::chrono::sys_seconds> made{};  ///< when; empty: not stated
  std::string document{};  ///< name of the JSON file that holds everything; empty: there is none
  std::vector<std::string> builds{};  ///< all of them, oldest first
  std::vector<PageGroup> groups{};    ///< all of them, most frequent first
  std::size_t skipped = 0;            ///< crash logs that could not be read
};

}  // namespace tarvo::toolkit
