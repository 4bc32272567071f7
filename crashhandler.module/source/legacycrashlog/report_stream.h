#pragma once

#include <cstdio>

namespace tarvo::crashhandler {

// The stream that the crash report is written through. It is made at initialisation, with its
// buffer, because opening one allocates; and it is the module's own, because a thread that lies
// still may hold the lock of standard error's. At a crash only a descriptor is put under it.

/// Makes the stream. False when there is no memory for it. Before a crash; repeated calls keep the
/// first stream.
bool PrepareReportStream();

/// Holds the folder of the report's file, so that the report goes where it would have gone at the
/// start, whatever the working directory is at the crash. A folder that is not there yet is looked
/// for at the crash. Before a crash.
void HoldReportFolder(const char* path);

/// Opens the file at `path` for writing, emptied if it is there, and puts it under the stream; null
/// when it cannot be opened. Crashed process.
std::FILE* OpenReportFile(const char* path);

/// Opens the finished report at `path` again, for reading and, where that can be, for writing; -1
/// when it is no regular file or cannot be opened. Crashed process.
int ReopenReportFile(const char* path);

/// Removes the file that could not be written whole, or empties it where it has no name of its own.
/// Crashed process.
void RemoveReportFile(const char* path);

/// Puts standard error under the stream. Crashed process.
std::FILE* OpenStandardError();

/// Writes out what the stream holds and closes a file under it. False when something could not be
/// written. Crashed process.
bool FinishReport();

/// Writes out what the program left in its standard streams, unless another thread holds them.
/// Crashed process.
void FlushStandardStreams();

}  // namespace tarvo::crashhandler
