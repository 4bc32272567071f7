// Shows any bytes as a resolved crash log: one print-out or one error, and whatever the document
// holds, nothing that steers a terminal.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "toolkit/document/crash_document.h"
#include "toolkit/show/printer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarvo::toolkit;
  const std::string_view json(reinterpret_cast<const char*>(data), size);
  const auto document = ParseCrashDocument(json, "x");
  if (!document) return 0;
  for (const bool showsAll : {false, true}) {
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    // Names of source files are a stranger's: they are not opened here.
    ShowOptions options;
    options.showsAll = showsAll;
    options.showsSource = false;
    PrintCrashDocument(*document, options, out);
    std::fclose(out);
    for (const char c : std::string_view(text, length))
      if (c != '\n' && static_cast<unsigned char>(c) < ' ') std::abort();
    std::free(text);
  }
  return 0;
}
