#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "tarvo/name_and_value.h"
#include "tarvo/object.h"
#include "tarvo/observable.h"
#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

// --- The record of one crash ---------------------------------------------------------------------
//
// Plain data that a crash callback reads inside the crashed process. Everything is owned by the
// capture and lives until the process ends; nothing in it may be freed or kept.

/// A growable array of the crash path.
template <typename T>
struct CaptureArray {
  static_assert(std::is_trivially_copyable_v<T>);

  T* items = nullptr;
  std::size_t size = 0;
  std::size_t capacity = 0;

  [[nodiscard]] const T* begin() const noexcept { return items; }
  [[nodiscard]] const T* end() const noexcept { return items + size; }
};

/// One register of a stopped thread.
struct RegisterValue {
  const char* name = nullptr;   ///< constant text
  std::uint16_t width = 0;      ///< the value's size in bytes: 2, 4, 8, 16 or 32
  std::uint64_t value[4] = {};  ///< the first `width` bytes, little-endian, the rest zero
};

/// One entry of a call stack.
struct StackFrame {
  std::uint64_t pc = 0;  ///< not filled by the Linux capture
  /// The frame's code address, and not a stack pointer: readers of reports have always found it in
  /// the place that the layout calls SP, with PC empty (crash_report.h), so records keep it there.
  std::uint64_t sp = 0;
  const char* symbolName = nullptr;  ///< not filled by the Linux capture
  std::uint64_t symbolOffset = 0;    ///< not filled by the Linux capture
  const char* moduleText = nullptr;  ///< module, function, offset and address as one text
};

/// One thread of the crashed process.
struct ThreadRecord {
  char* name = nullptr;  ///< 16 zero-padded bytes, or null
  std::int64_t tid = 0;  ///< the kernel's thread id
  CaptureArray<RegisterValue> registers;
  CaptureArray<StackFrame> frames;  ///< innermost first
  /// What the capture knows of it beside the variables that the program has set.
  CaptureArray<NameAndValue> variables;
};

/// One loaded object of the crashed process.
struct ModuleRecord {
  const char* path = nullptr;     ///< the loader's text; empty for the program itself
  std::uint64_t baseAddress = 0;  ///< the difference between link-time and run-time addresses
  std::uint64_t size = 0;         ///< sum of the file sizes of all program headers, in bytes
};

struct CrashInfo {
  std::int32_t signal = 0;
  const char* signalName = nullptr;  ///< constant text
  std::uint64_t faultAddress = 0;
  pthread_t crashThread = 0;
  CaptureArray<ModuleRecord> modules;  ///< in the loader's order, the program first
  CaptureArray<ThreadRecord> threads;  ///< in the kernel's order
};

/// Called once in the crashed process, on the crashing thread, inside the signal handler: it must
/// not allocate, take locks that another thread may hold, or throw.
using CrashCallback = void (*)(const CrashInfo*);

// --- The service ---------------------------------------------------------------------------------

/// One loaded object, for clients in a healthy process.
struct LoadedModule {
  String path;
  std::uint64_t baseAddress = 0;
  std::uint64_t size = 0;
};

/// What the crash-handler module offers to the application. A handler may be held past the host's
/// end: then what returns a Result gives an illegal-state error, and nothing else does anything.
class CrashHandler : public Object {
 public:
  static constexpr std::string_view kInterfaceId = "net.tarvo.interface.crashhandler";

  /// Replaces the function that is called at a crash (at first the module's own report writer; a
  /// replacement that is to call it finds it as CrashCallbacks::Writer). False, and nothing is
  /// stored, when no crash capture is installed.
  virtual bool SetCallback(CrashCallback callback) = 0;

  /// Sets the one function that is called after the first one. False as above. Callbacks that stand
  /// beside those of others: tarvo/crash_callbacks.h.
  virtual bool SetSecondaryCallback(CrashCallback callback) = 0;

  /// Tells the observers of ObservableCrashDataDirectory, in this thread, where crash data belongs.
  /// The directory is made when it is missing, parents included. Errors: illegal argument
  /// "dataDirectory is empty.", illegal state "Could not create directory.", those of the file
  /// service and of the observers.
  virtual Result<void> SetCrashDataDirectory(const Url& dataDirectory) = 0;

  /// Shows a message to the user where the platform can; on Linux a diagnostic line.
  virtual void DisplayCrashDialog(const String& title, const String& message) = 0;

  /// Appends the objects that are loaded in this process, in the loader's order. An out-of-memory
  /// error when they could not all be listed.
  virtual Result<void> GetProcessModules(std::vector<LoadedModule>& modules) = 0;

  /// Resolves one crash report and writes the result beside it. An empty directory means the one
  /// that is configured.
  virtual Result<void> ResolveBugReport(const Url& crashLog, const Url& symbolArchiveDirectory,
                                        const Url& symbolTemporaryDirectory) = 0;

  /// A new reference to the observable of the crash-data directory; null before the module is
  /// initialised and after it was freed.
  virtual Ref<Observable> ObservableCrashDataDirectory() = 0;

 protected:
  ~CrashHandler() = default;
};

}  // namespace tarvo
