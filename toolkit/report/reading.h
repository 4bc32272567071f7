#pragma once

#include "tarvo/data_dictionary.h"

namespace tarvo::report {

/// What the reading of a report is to do, and what it found. The module that reads asks the
/// program's ResolveObserver; that answers by the two functions below for what the calling thread
/// resolves.
struct Reading {
  bool isOwn = false;  ///< a normalized report of this project's own capture: texts are spelled
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

/// For ResolveObserver::ReportRead: puts spelled texts back.
void CompleteReading(DataDictionary& crashLog);

}  // namespace tarvo::report
