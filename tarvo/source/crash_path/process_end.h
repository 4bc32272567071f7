#pragma once

namespace tarvo {

// Nothing of a program runs on between a fault and the end of the process: a thread that ended the
// process while another one's crash is captured would leave no report. The host library defines
// exit, quick_exit, _exit and _Exit in front of the C library's: from the beginning of a capture
// they wait for its end in all threads but the capturing one. (What the C library calls itself,
// when `main` returns, does not come through here; the module's free step waits there.)

/// Says that the calling thread captures the crash of this process from now on. Crashed process.
void BeginCapture();

/// Whether a thread of this process does. Any context.
[[nodiscard]] bool HasCaptureBegun();

}  // namespace tarvo
