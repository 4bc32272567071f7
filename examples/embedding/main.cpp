#include <cstdio>

#include "tarvo/host/host.h"

int main(int argc, char** argv) {
  auto host = tarvo::Host::Start({.arguments = tarvo::TakeConfigurationArguments(argc, argv),
                                  .modules = {"crashhandler"},
                                  .build = "1.0"});
  if (!host) {
    std::fprintf(stderr, "No crash is captured: %s\n",
                 host.GetError().Text().ToStdString().c_str());
  }
  volatile int divisor = argc - 1;
  return 100 / divisor;  // without an argument this crashes, and a report is written
}
