#include "crash_guard/after_report.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "crash_context/text_buffer.h"
#include "crash_guard/fault_facts.h"
#include "crash_guard/guard_state.h"
#include "crash_guard/report_file.h"

namespace tarvo {
namespace {

/// The capture leaves an empty file where it could not write the report, and tells where it is.
bool HasReport() {
  struct stat status{};
  return fstat(g_reportDescriptor, &status) != 0 || status.st_size != 0;
}

void PrintName(int signal, const char* path) {
  const bool hasReport = HasReport();
  if (!hasReport) unlink(path);
  TextBuffer<PATH_MAX + 200> line;
  line.Append("tarvo: Process ");
  line.AppendDecimal(getpid());
  line.Append(" (");
  line.Append(program_invocation_short_name);
  line.Append(") crashed with ");
  line.Append(NameOf(kCrashSignals, signal));
  line.Append(hasReport ? "; its report is " : "; its report could not be written to ");
  line.Append(path);
  line.Append("\n");
  if (write(STDERR_FILENO, line.Text(), line.Size()) < 0) return;  // nobody is there to read it
}

}  // namespace

void EndBySignal(int signal) {
  ::signal(signal, SIG_DFL);
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, signal);
  // Sent while it may be blocked, then let through: it is there when the call returns.
  syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), signal);
  pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
}

void NameReport(const CrashInfo* crash) {
  if (const char* path = ReportFilePath(); path[0] != '\0') PrintName(crash->signal, path);
}

void EndReported(const CrashInfo* crash) {
  if (g_guard.reraise) EndBySignal(crash->signal);
}

}  // namespace tarvo
