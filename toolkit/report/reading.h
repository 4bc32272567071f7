#pragma once

#include <cstddef>
#include <cstdint>

#include "tarvo/data_dictionary.h"

namespace tarvo::report {

/// What was left out of a report that could not all be read.
struct ReportDamage {
  bool isDamaged = false;
  bool isCut = false;      ///< the report ends within itself
  std::uint64_t line = 0;  ///< where it is cut, else of the first place; 0 where that is not known
  String expected{};       ///< and found there

  [[nodiscard]] explicit operator bool() const noexcept { return isDamaged; }
};

/// What the reading of a report is to do, and what it found. The module that reads asks the
/// program's ResolveObserver; that answers by the two functions below for what the calling thread
/// resolves.
struct Reading {
  bool salvages = true;  ///< goes on behind what cannot be read
  bool isOwn = false;    ///< a normalized report of this project's own capture: texts are spelled
  std::size_t addedLine = 0;  ///< see NormalizedReport
  String packedDamage{};      ///< why what was packed is not all there; else empty
  ReportDamage damage{};      ///< found
};

/// Makes `reading` the calling thread's for as long as this lives.
class ReadingScope {
 public:
  explicit ReadingScope(Reading& reading) noexcept;
  ~ReadingScope();
  ReadingScope(const ReadingScope&) = delete;
  ReadingScope& operator=(const ReadingScope&) = delete;

 private:
  Reading* outer_;
};

/// For ResolveObserver::Salvages: what the thread's reading is to do; false where it has none.
[[nodiscard]] bool SalvagesReading() noexcept;

/// For ResolveObserver::ReportRead: puts spelled texts back, and the report's own numbers of lines
/// into what is said of damage, and marks the crash.
void CompleteReading(DataDictionary& crashLog);

}  // namespace tarvo::report
