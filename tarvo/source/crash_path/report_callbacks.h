#pragma once

#include "tarvo/crash_callbacks.h"

namespace tarvo {

/// The chain as the service that programs bind; one for the process. Before a crash.
[[nodiscard]] Ref<CrashCallbacks> ReportCallbackChain();

/// Takes all callbacks out, those of an earlier host. Before a crash.
void ClearReportCallbacks();

/// What the crash guard does around the chain; null for nothing. Before a crash.
void SetCrashEnd(CrashCallback reportWritten, CrashCallback captureEnds);

// The functions of the crash services. Crashed process, but for the last one.
void ReportWritten(const CrashInfo* crash);
bool RunNextCallback(const WrittenReport* report);
void CaptureEnds(const CrashInfo* crash);
void OfferWriter(CrashCallback writer);

}  // namespace tarvo
