#include "crash_guard/report_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "crash_context/text_buffer.h"

namespace tarvo {

constinit char g_reportTemplate[PATH_MAX] = "";
constinit int g_reportDescriptor = -1;

namespace {

constinit TextBuffer<PATH_MAX> g_path;
bool g_isOpen = false;

}  // namespace

void OpenReportFile() {
  if (g_reportDescriptor < 0) return;
  for (const char* c = g_reportTemplate; *c != '\0'; ++c) {
    if (*c == kProcessIdMark) {
      g_path.AppendDecimal(getpid());
    } else {
      g_path.Append(*c);
    }
  }
  const int file = open(g_path.Text(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666);
  g_isOpen =
      file == g_reportDescriptor || (file >= 0 && dup3(file, g_reportDescriptor, O_CLOEXEC) >= 0);
  // The capture opens what stands there and empties it: it must be no file of the program's.
  if (!g_isOpen) close(g_reportDescriptor);
  if (file >= 0 && file != g_reportDescriptor) close(file);
}

const char* ReportFilePath() { return g_isOpen ? g_path.Text() : ""; }

}  // namespace tarvo
