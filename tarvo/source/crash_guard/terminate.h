#pragma once

namespace tarvo {

/// Has std::terminate put the type and the message of the exception that led to it into the
/// variables ExceptionType and ExceptionMessage of its thread, before it goes on to the handler
/// that was there. Before a crash.
void RecordUncaughtExceptions();

/// Puts the earlier handler back, unless the program has installed its own since. Before a crash.
void StopRecordingUncaughtExceptions();

}  // namespace tarvo
