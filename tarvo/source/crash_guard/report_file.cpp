#include "crash_guard/report_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "crash_context/text_buffer.h"

namespace tarvo {

constinit char g_reportTemplate[PATH_MAX] = "";
constinit char g_fallbackTemplate[PATH_MAX] = "";
constinit int g_reportDescriptor = -1;
constinit bool g_makesReportFolders = false;

namespace {

using Path = TextBuffer<PATH_MAX>;
constinit Path g_path;
bool g_isOpen = false;

Path PathOf(const char* pathTemplate) {
  Path path;
  for (const char* c = pathTemplate; *c != '\0'; ++c) {
    if (*c == kProcessIdMark) {
      path.AppendDecimal(getpid());
    } else {
      path.Append(*c);
    }
  }
  return path;
}

int Open(const Path& path) {
  return open(path.Text(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666);
}

void MakeFolders(const Path& path) {
  Path folder;
  for (const char* c = path.Text(); *c != '\0'; ++c) {
    // What is there already is refused.
    if (*c == '/' && folder.Size() != 0) mkdir(folder.Text(), 0777);
    folder.Append(*c);
  }
}

/// The file at the path, made with its folders if they are to be.
int OpenWithFolders(const Path& path, bool makesFolders) {
  const int file = Open(path);
  if (file >= 0 || errno != ENOENT || !makesFolders) return file;
  MakeFolders(path);
  return Open(path);
}

}  // namespace

void OpenReportFile() {
  if (g_reportDescriptor < 0) return;
  g_path = PathOf(g_reportTemplate);
  int file = OpenWithFolders(g_path, g_makesReportFolders);
  if (file < 0 && g_fallbackTemplate[0] != '\0') {
    g_path = PathOf(g_fallbackTemplate);
    file = OpenWithFolders(g_path, true);
  }
  g_isOpen =
      file == g_reportDescriptor || (file >= 0 && dup3(file, g_reportDescriptor, O_CLOEXEC) >= 0);
  // The capture opens what stands there and empties it: it must be no file of the program's.
  if (!g_isOpen) close(g_reportDescriptor);
  if (file >= 0 && file != g_reportDescriptor) close(file);
}

const char* ReportFilePath() { return g_isOpen ? g_path.Text() : ""; }

}  // namespace tarvo
