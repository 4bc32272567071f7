#include <cstdio>

#include "scene.h"
#include "tarvo/host/host.h"
#include "tarvo/host/thread_variables.h"

int main(int argc, char** argv) {
  const auto host =
      tarvo::Host::Start({.arguments = tarvo::TakeConfigurationArguments(argc, argv),
                          .modules = {"crashhandler"},
                          .build = "viewer-1.0",
                          .reportFallback = "viewer/crashes",
                          .attachedFiles = {"viewer.log"},
                          .crashGuard = {.enabled = true, .report = "%e-%p_bugreport.txt"}});
  if (!host) {
    std::fprintf(stderr, "No crash is captured: %s\n",
                 host.GetError().Text().ToStdString().c_str());
  }
  (void)tarvo::SetThreadVariable("Document", "city.scene");

  const Node last{2, nullptr};
  const Node first{1, &last};
  std::printf("%d\n", WidthOf(&first, argc + 2));
  return 0;
}
