#pragma once

#include <string>

#include "tarvo/data_dictionary.h"

/// What a watch tells of a report: Report (its path), Outcome ("Resolved" or "Failed"), and where
/// they are known Frames, Resolved, Damaged, Group, Signature, NewGroup, NotGrouped, Error.
namespace tarvo::toolkit {

namespace news {
inline constexpr const char* kReport = "Report";
inline constexpr const char* kOutcome = "Outcome";
inline constexpr const char* kResolved = "Resolved";  ///< an outcome, and a number of frames
inline constexpr const char* kFailed = "Failed";      ///< an outcome
inline constexpr const char* kFrames = "Frames";
inline constexpr const char* kDamaged = "Damaged";
inline constexpr const char* kGroup = "Group";
inline constexpr const char* kSignature = "Signature";
inline constexpr const char* kNewGroup = "NewGroup";
inline constexpr const char* kNotGrouped = "NotGrouped";
inline constexpr const char* kError = "Error";
}  // namespace news

/// One line for people, with its end, that is safe to print.
[[nodiscard]] std::string NewsText(const DataDictionary& news);

/// One line of JSON, with its end.
[[nodiscard]] std::string NewsLine(const DataDictionary& news);

}  // namespace tarvo::toolkit
