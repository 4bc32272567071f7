#pragma once

#include <cstdint>
#include <string_view>

#include "tarvo/data_dictionary.h"
#include "tarvo/error.h"
#include "tarvo/object.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

/// What became of a frame of a crash report when it was resolved.
enum class FrameOutcome : std::uint8_t {
  Resolved,
  NoModule,           ///< the report gives no module, or no address
  ModuleNotListed,    ///< the report does not list the frame's module
  ModuleIncomplete,   ///< the report lists it without a build, or what it says cannot be read
  NoArchive,          ///< there is no symbol archive of the module's build
  UnreadableArchive,  ///< searching or unpacking the archive failed
  NoBundle,           ///< the archive holds nothing for the module
  UnreadableBundle,   ///< no debug information, another architecture, or damaged
  UnknownAddress,     ///< the symbols do not cover the address
  WrongSymbols,       ///< the symbols are another build's, platform's or module's
};
inline constexpr std::size_t kFrameOutcomes = 10;

/// One frame, as an observer is told of it. Valid during the call.
struct FrameReport {
  FrameOutcome outcome = FrameOutcome::Resolved;
  const DataDictionary& frame;   ///< of the crash log, completed when it was resolved
  const String& build;           ///< of the frame's module; empty where that is not known
  const Error* error = nullptr;  ///< why it was not resolved; null where `outcome` says it all
};

/// Work on symbols that takes its time.
enum class SymbolWork : std::uint8_t {
  Unpacking,  ///< an archive
  Indexing,   ///< a debug file
};

/// How far it is. Valid during the call.
struct WorkReport {
  SymbolWork work = SymbolWork::Unpacking;
  const String& file;  ///< the archive's or debug file's path
  std::uint64_t done = 0;
  std::uint64_t all = 0;  ///< in bytes, as `done`; 0 while that is not known
};

/// A component that has a say in how reports are read, and is told what becomes of each frame.
/// Nobody has to bring one. All operations are called in the thread that resolves; several reports
/// may be resolved at once, each in a thread of its own.
class ResolveObserver : public Object {
 public:
  static constexpr std::string_view kInterfaceId = "net.tarvo.interface.resolveobserver";

  /// Asked before a report is read: whether what cannot be read of it is left out and noted under
  /// "Damage" (tarvo/crash_report.h), so that the rest is resolved. Without that the first error
  /// ends the reading.
  [[nodiscard]] virtual bool Salvages() { return false; }

  /// Called with the text that was read of a report's file, whole, before anything is made of it.
  virtual void TextRead(const String& text) { static_cast<void>(text); }

  /// Called once a report is read, before its frames are resolved. What is changed in `crashLog` is
  /// what is resolved and written.
  virtual void ReportRead(DataDictionary& crashLog) { static_cast<void>(crashLog); }

  /// Called once for each frame, in the order of the report.
  virtual void FrameDone(const FrameReport& report) = 0;

  /// Called once all frames are done. What is changed in `crashLog` is what is written. Returns
  /// whether it is: false leaves no files beside the report, because the observer keeps what it
  /// needs.
  virtual bool ReportResolved(DataDictionary& crashLog) {
    static_cast<void>(crashLog);
    return true;
  }

  /// Called when a frame asks for symbols of another module than the one before.
  virtual void ModuleBegins(const String& module) { static_cast<void>(module); }

  /// Called again and again while symbols are unpacked or indexed, from the first tenth of a second
  /// on: the resolving waits for it. Other threads may report the same work.
  virtual void Working(const WorkReport& report) { static_cast<void>(report); }
  /// The work that was reported last is over.
  virtual void WorkEnds() {}

  /// Called when symbols are loaded for the report of which parts are missing, as split debug
  /// information can be: for each place where one was looked for, at most a hundred.
  virtual void PartMissed(const Url& place) { static_cast<void>(place); }

 protected:
  ~ResolveObserver() = default;
};

}  // namespace tarvo
