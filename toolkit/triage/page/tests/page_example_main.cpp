// Writes an example of the triage page to standard output:
//
//     build/release/tests/page_example KIND
//
// KIND is the number of groups (40 is a good look, 2600 more than a page takes) or "hostile".

#include <cstdio>
#include <cstdlib>
#include <string>

#include "page_example.h"
#include "toolkit/triage/page/page.h"

int main(int argc, char** argv) {
  const std::string kind = argc == 2 ? argv[1] : "";
  char* end = nullptr;
  const unsigned long groups = std::strtoul(kind.c_str(), &end, 10);
  if (kind.empty() || (*end != '\0' && kind != "hostile")) {
    std::fputs("usage: page_example GROUPS|hostile\n", stderr);
    return 2;
  }
  const std::string page =
      tarvo::toolkit::MakePage(kind == "hostile" ? tarvo::toolkit::HostileContent()
                                                 : tarvo::toolkit::ExampleContent(groups));
  return std::fwrite(page.data(), 1, page.size(), stdout) == page.size() && std::fflush(stdout) == 0
             ? 0
             : 1;
}
