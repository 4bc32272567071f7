// Leaves a line in a log of its own when it crashes:
//
//     callbacks LOG

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "tarvo/crash_callbacks.h"
#include "tarvo/host/host.h"

namespace {

struct Session {
  int log;
  char document[256];
};

void OnReport(const tarvo::WrittenReport* report, void* data) {
  const auto* session = static_cast<const Session*>(data);
  for (const char* text : {session->document, " was open; the report is ", report->path, "\n"})
    if (write(session->log, text, std::strlen(text)) < 0) return;
  fsync(session->log);
}

Session g_session{-1, "city.scene"};

}  // namespace

int main(int argc, char** argv) {
  auto host = tarvo::Host::Start(
      {.arguments = tarvo::TakeConfigurationArguments(argc, argv), .modules = {"crashhandler"}});
  if (argc != 2 || !host) return 2;
  g_session.log = open(argv[1], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (auto chain = tarvo::Bind<tarvo::CrashCallbacks>((*host)->Services()))
    (void)(*chain)->Append({OnReport, &g_session});
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
  return 0;
}
