#pragma once

#include <cstddef>
#include <cstdint>

#include "tarvo/data_dictionary.h"
#include "tarvo/string.h"

namespace tarvo::crashhandler {

/// What a reading does at what it cannot read.
enum class OnDamage : std::uint8_t {
  Fail,  ///< ends with the error
  GoOn,  ///< notes it and goes on with what it can read next
};

/// What a reading that goes on has left out: for each place the line and what was expected there.
class Damage {
 public:
  /// Of more places than this only the first are noted.
  static constexpr std::size_t kMaximumNotes = 100;

  void Note(std::size_t line, const String& expected);
  /// Notes that the report ends at the last place; there must be one.
  void MarkCut();

  [[nodiscard]] bool IsEmpty() const noexcept { return notes_.IsEmpty(); }
  /// What was expected at the first place; there must be one.
  [[nodiscard]] String First() const;
  /// The line of the last one, 0 where there is none.
  [[nodiscard]] std::size_t LastLine() const noexcept { return lastLine_; }
  /// As the crash log has it.
  [[nodiscard]] const DataArray& Notes() const noexcept { return notes_; }

 private:
  DataArray notes_;
  std::size_t lastLine_ = 0;
};

/// What a line starts.
enum class Opener : std::uint8_t {
  None,
  Section,
  Thread,
  ThreadPart,  ///< the registers or the variables
  Frame,       ///< with an address
  Module,
  Entry,  ///< "KEY = …"
  End,    ///< "}"
};

/// Where a reading stands that goes on behind damage (recovery.h).
struct Recovery {
  OnDamage onDamage = OnDamage::Fail;
  Damage damage{};
  Opener pending = Opener::None;  ///< what the reading has moved to and no block has taken yet
  bool isOwn = false;             ///< the report is of this project's own capture
  bool isEndNoted = false;        ///< that the text ends early
  bool isEndMissed = false;       ///< a "}" was, at the end of the text
  bool lacksOnlyItsEnd = false;   ///< and nothing was noted before: no error without salvage
};

}  // namespace tarvo::crashhandler
