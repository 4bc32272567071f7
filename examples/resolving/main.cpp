// Resolves crash reports by itself:
//
//     resolving ARCHIVES CACHE REPORT…

#include <cstdio>

#include "tarvo/host/host.h"
#include "tarvo/report/resolve.h"

namespace {

int Fail(const tarvo::Error& error) {
  std::fprintf(stderr, "%s\n", error.Text().ToStdString().c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const auto arguments = tarvo::TakeConfigurationArguments(argc, argv);
  if (argc < 3) return 2;
  const auto host = tarvo::Host::Start(
      {.arguments = arguments, .components = {tarvo::report::ReadingComponent()}});
  if (!host) return Fail(host.GetError());
  const tarvo::report::ResolveOptions options{.archives = tarvo::Url::FromSystemPath(argv[1]),
                                              .cache = tarvo::Url::FromSystemPath(argv[2])};
  for (int i = 3; i < argc; ++i) {
    const auto report = tarvo::Url::FromSystemPath(argv[i]);
    const auto resolved = tarvo::report::Resolve((*host)->Services(), report, options);
    if (!resolved) return Fail(resolved.GetError());
    std::puts(tarvo::report::DocumentOf(report).Text().ToStdString().c_str());
  }
  return 0;
}
