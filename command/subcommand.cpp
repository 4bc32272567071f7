#include "command/subcommand.h"

#include <csignal>
#include <cstdio>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::command {

int WithHost(const Context& context, const std::function<int(Host&)>& work) {
  // A file over the limit of the process (ulimit -f) is that file's error, and no end of the
  // program.
  std::signal(SIGXFSZ, SIG_IGN);
  const auto host = Host::Start(context.host);
  return host ? work(**host) : Fail(host.GetError(), kWrongUsage);
}

int Fail(const Error& error, int status) {
  // Whole lines, also beside output of the modules.
  std::fputs(("tarvo: " + toolkit::SafeText(Format("@", error)) + "\n").c_str(), stderr);
  return status;
}

}  // namespace tarvo::command
