#pragma once

/// Crash reports resolved to function, file and line by a program of one's own, as `tarvo resolve`
/// does it:
///
///     #include "tarvo/host/host.h"
///     #include "tarvo/report/resolve.h"
///
///     auto host = tarvo::Host::Start({.components = {tarvo::report::ReadingComponent()}});
///     const auto resolved = tarvo::report::Resolve(
///         (*host)->Services(), tarvo::Url::FromSystemPath("crash_bugreport.txt"),
///         {.archives = tarvo::Url::FromSystemPath("archives"),
///          .cache = tarvo::Url::FromSystemPath("cache")});
///
/// In CMake: `find_package(tarvo)` and
/// `target_link_libraries(program PRIVATE tarvo::report tarvo::host)`.

#include "tarvo/framework.h"
#include "tarvo/registration.h"
#include "tarvo/report/normalize.h"
#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::report {

struct ResolveOptions {
  /// The symbol archives (tarvo/symbol_archive.h), flat or a hierarchy. Empty: those of the entry
  /// g_symbolArchiveDirectory.
  Url archives{};

  /// Where archives are unpacked to, once each, and used from; made where missing. Takes as much
  /// room as what is in them. Empty: the directory of the entry g_symbolTemporaryDirectory.
  Url cache{};

  /// A report whose return addresses are adjusted, or that is of this project's own capture, is
  /// resolved in a copy.
  ReturnAddressAdjustment adjustment = ReturnAddressAdjustment::OwnReports;

  /// Reads a damaged or cut report as far as it goes, and notes in the document, under "Damage",
  /// what was left out. Takes the ReadingComponent below; false: the first error is the report's.
  bool salvages = true;
};

/// Resolves the crash report `report` and puts what comes of it beside it, DocumentOf and CopyOf;
/// each appears in one step and replaces an older one. The report itself is not changed. Frames
/// whose symbols are missing stay as they are: that is no error.
///
/// `framework` is that of a running Host with the crash handler's module, Host::Services(); with
/// symbolreader.so among its modules debug files are read.
///
/// Any thread; different reports at once. The error of the first step that fails: the archives are
/// no directory, the cache or a directory for the copy (below the system's for temporary files)
/// cannot be made, the report cannot be read or is none, an outcome cannot be written. Nothing of
/// the copy is left.
///
/// A report may be packed by gzip or xz, and be UTF-16.
[[nodiscard]] Result<void> Resolve(Framework& framework, const Url& report,
                                   const ResolveOptions& options = {});

/// The component through which Resolve has a say in how a report is read: put it among
/// HostOptions::components. Without it a damaged report is an error, and names that a report's line
/// cannot carry stand in the documents as `tarvo normalize` spells them.
[[nodiscard]] ComponentRecord ReadingComponent();

/// The files that resolving `report` leaves beside it ("a_bugreport.resolved.json" also for
/// "a_bugreport.txt.gz"): the resolved crash log as JSON, which
/// `tarvo show` prints, and the same as a report's text. Empty where `report` names no file.
[[nodiscard]] Url DocumentOf(const Url& report);
[[nodiscard]] Url CopyOf(const Url& report);

}  // namespace tarvo::report
