#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tarvo/configuration.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/format.h"
#include "tarvo/job.h"
#include "tarvo/name_and_value.h"
#include "tarvo/object.h"
#include "tarvo/result.h"
#include "tarvo/source_location.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

/// What the framework offers to a module: one abstract class a service. A module reaches them
/// through `g_tarvo.framework`; all may be called from any thread unless their text says otherwise.
namespace tarvo {

// --- Output --------------------------------------------------------------------------------------

/// Lines for people. Every call writes one whole line with one system call, also when several
/// threads write; line ends in the text, control characters and whatever else could steer a
/// terminal stand as their bytes ("\x1b"), and a text of more than 64 KB is cut. Diagnostic and
/// critical lines go to standard error with the place they come from, console lines to standard
/// output.
class OutputService {
 public:
  virtual void Diagnostic(SourceLocation where, std::string_view text) = 0;
  virtual void Critical(SourceLocation where, std::string_view text) = 0;
  virtual void Console(SourceLocation where, std::string_view text) = 0;

 protected:
  ~OutputService() = default;
};

// --- Files ---------------------------------------------------------------------------------------

enum class FileKind { Nothing, File, Directory, Other };

/// Flags of a directory entry.
inline constexpr std::uint32_t kDirectoryAttribute = 0x1;
/// The entry is hidden (its name starts with ".") or neither file nor directory.
inline constexpr std::uint32_t kSkippedAttribute = 0x80;

struct DirectoryEntry {
  Url url;
  String name;
  std::uint32_t attributes = 0;
};

/// Steps through a directory in the order in which the kernel lists it. Used by one thread.
class BrowseIterator : public Object {
 public:
  /// Moves to the next entry and puts it into `entry`; false at the end.
  virtual Result<bool> Next(DirectoryEntry& entry) = 0;

 protected:
  ~BrowseIterator() = default;
};

/// A file that is being written; it appears under its name when Commit succeeds, in one step, and
/// never in part. Dropped without Commit it leaves nothing. Used by one thread.
class OutputFile : public Object {
 public:
  virtual Result<void> Write(std::string_view bytes) = 0;
  virtual Result<void> Commit() = 0;

 protected:
  ~OutputFile() = default;
};

/// Errors are file errors with the URL and the system's reason.
class FileService {
 public:
  /// What `url` names, links followed. Nothing also when it cannot be looked at.
  [[nodiscard]] virtual FileKind Detect(const Url& url) = 0;
  /// Makes a directory with all missing parents. No error when it is there.
  virtual Result<void> CreateDirectory(const Url& url) = 0;
  virtual Result<Ref<BrowseIterator>> Browse(const Url& directory) = 0;
  /// The whole content of a file, in one shared buffer.
  virtual Result<String> ReadText(const Url& file) = 0;
  /// The first `size` bytes of a regular file, or all of a shorter one, to tell what it is. Nothing
  /// is read of a pipe or a device, which could not be read again: an empty text.
  virtual Result<String> ReadStart(const Url& file, std::size_t size) = 0;
  virtual Result<Ref<OutputFile>> Create(const Url& file) = 0;

 protected:
  ~FileService() = default;
};

// --- Data formats and archives -------------------------------------------------------------------

class DataFormatService {
 public:
  /// Writes `tree` to `file` as a JSON document (indented, "\n" at its end), by OutputFile's rule.
  virtual Result<void> WriteJson(const DataDictionary& tree, const Url& file) = 0;

 protected:
  ~DataFormatService() = default;
};

/// Reads an archive. The framework makes one for the class id "net.tarvo.readarchiveclass.zip".
/// How far the extraction of an archive is, in bytes of its content.
struct ArchiveProgress {
  std::uint64_t done = 0;
  std::uint64_t all = 0;  ///< 0 while that is not known
};

class ReadArchive : public Object {
 public:
  static constexpr std::string_view kZipClassId = "net.tarvo.readarchiveclass.zip";

  virtual Result<void> Open(const Url& archive) = 0;
  /// Extracts everything into `directory`, which appears only when all is there. When it is there
  /// already nothing is done; when another thread or process is making it, its result is awaited
  /// and used.
  virtual Result<void> Extract(const Url& directory) = 0;
  /// Of the extraction that runs or ran last. Any thread.
  [[nodiscard]] virtual ArchiveProgress Progress() const { return {}; }

 protected:
  ~ReadArchive() = default;
};

/// Time, so that tests can hold the clock.
class ClockService {
 public:
  [[nodiscard]] virtual std::chrono::nanoseconds Now() = 0;

 protected:
  ~ClockService() = default;
};

// --- The crash path's services -------------------------------------------------------------------

/// A thread's variables, as they stood at one moment.
struct ThreadVariableList {
  const NameAndValue* items = nullptr;
  std::size_t size = 0;
};

/// What a program has attached to its reports (tarvo/host/attachments.h). Zero-terminated texts.
struct Attachment {
  const char* name = nullptr;  ///< one line
  const char* file = nullptr;  ///< of which the last lines are meant; null: `text` is
  const char* text = nullptr;  ///< any bytes but zero
  std::size_t size = 0;        ///< of `text`, in bytes
};

struct CrashInfo;      // tarvo/crashhandler.h
struct WrittenReport;  // tarvo/crash_callbacks.h

/// Plain functions that may be called at any moment: in a signal handler, with any lock held, with
/// the heap in ruins, in a forked child. They do not allocate, block or throw.
struct CrashServices {
  /// Writes one diagnostic line. Cut at about 1000 bytes.
  void (*diagnostic)(const char* path, std::uint32_t line, const char* text) = nullptr;
  /// The variables of thread `tid`; an empty list when it has none. What it returns stays valid
  /// until the process ends or, when the process goes on, until `releaseThreadVariables`.
  ThreadVariableList (*threadVariables)(pid_t tid) = nullptr;
  /// Ends the use of every list that this thread was given.
  void (*releaseThreadVariables)() = nullptr;
  /// Says that the calling thread captures the crash of the process from now on: no other thread
  /// ends the process any more by exit or its like.
  void (*captureBegins)() = nullptr;
  /// Says that the report is written, or given up.
  void (*reportWritten)(const CrashInfo* crash) = nullptr;
  /// Calls the next of the program's callbacks behind the report; false when there is none left.
  bool (*runNextCallback)(const WrittenReport* report) = nullptr;
  /// Says that the capture has done all that it had to; may end the process.
  void (*captureEnds)(const CrashInfo* crash) = nullptr;
  /// The attachment in place `index`, from 0; null in a place that is free. Valid until the process
  /// ends when a capture has begun.
  const Attachment* (*attachment)(std::size_t index) = nullptr;
  /// How many places for attachments there are.
  std::size_t attachmentPlaces = 0;
  /// Before a crash: says which function writes reports; null when no capture is installed any
  /// more.
  void (*offerWriter)(void (*writer)(const CrashInfo*)) = nullptr;
};

// --- The framework -------------------------------------------------------------------------------

class Framework {
 public:
  virtual OutputService& Output() = 0;
  virtual FileService& Files() = 0;
  virtual ConfigurationService& Configuration() = 0;
  virtual JobService& Jobs() = 0;
  virtual DataFormatService& DataFormats() = 0;
  virtual ClockService& Clock() = 0;
  /// Lives as long as the process.
  virtual const CrashServices& Crash() = 0;

  /// Makes an object of a class of the framework's registry. An illegal-argument error that names
  /// the class when there is none.
  virtual Result<Ref<Object>> CreateObject(std::string_view classId) = 0;
  /// The component that is bound to an interface: one shared object for services, a new one each
  /// time for Symbolification and InlineSymbolification. An illegal-state error that names the
  /// interface when none is bound.
  virtual Result<Ref<Object>> Bind(std::string_view interfaceId) = 0;

  /// Whether the process runs under a debugger: it is traced, or a parent process is a known
  /// debugger. Found out once, at the start.
  [[nodiscard]] virtual bool IsUnderDebugger() = 0;
  /// The directory of the program, absolute, as it was when the host was loaded: where its parts
  /// are. Of a program in "bin", beside which there is a "lib", the folder above, unless that is
  /// the system's ("/", "/usr", "/usr/local").
  [[nodiscard]] virtual String ProgramDirectory() = 0;
  /// The directory of the loaded modules, absolute, as it was when they were loaded.
  [[nodiscard]] virtual String ModuleDirectory() = 0;

 protected:
  ~Framework() = default;
};

/// `CreateObject` for a class whose interface is known.
template <typename T>
Result<Ref<T>> CreateObject(Framework& framework, std::string_view classId) {
  Result<Ref<Object>> object = framework.CreateObject(classId);
  if (!object) return object.GetError();
  return Ref<T>::Adopt(static_cast<T*>(object->Detach()));
}

/// The component bound to T's interface.
template <typename T>
Result<Ref<T>> Bind(Framework& framework) {
  Result<Ref<Object>> object = framework.Bind(T::kInterfaceId);
  if (!object) return object.GetError();
  return Ref<T>::Adopt(static_cast<T*>(object->Detach()));
}

}  // namespace tarvo
