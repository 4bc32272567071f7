#include <cstdio>

#include "tarvo/host/host.h"

int main(int argc, char** argv) {
  auto host = tarvo::Host::Start({.arguments = tarvo::TakeConfigurationArguments(argc, argv)});
  if (!host) {
    std::fprintf(stderr, "%s\n", host.GetError().Text().ToStdString().c_str());
    return 2;
  }
  volatile int divisor = argc - 1;
  return 100 / divisor;  // without an argument this crashes, and a report is written
}
