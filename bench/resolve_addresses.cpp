// Resolves addresses as a module's crash log would be: `resolve_addresses BUNDLE ARCHITECTURE`
// reads hexadecimal offsets from standard input, one a line, and answers each with two lines for
// each function there, innermost first, its name and file:line, and an empty line. Entries may be
// given as "--g_NAME=VALUE". bench/symbols measures it.

#include <charconv>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "tarvo/host/host.h"
#include "tarvo/inline_symbolification.h"

namespace {

using tarvo::String;

std::string ReadInput() {
  std::string input;
  char buffer[1 << 16];
  for (std::size_t size; (size = std::fread(buffer, 1, sizeof buffer, stdin)) > 0;)
    input.append(buffer, size);
  return input;
}

std::string_view Shown(const String& text) {
  return text.IsEmpty() ? std::string_view("??") : text.View();
}

tarvo::Result<std::string> Answer(tarvo::InlineSymbolification& symbols,
                                  const tarvo::SymbolFileRequest& request, std::string_view input) {
  std::string output;
  while (!input.empty()) {
    const std::string_view text = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(input.size(), text.size() + 1));
    std::uint64_t offset = 0;
    const std::size_t prefix = text.starts_with("0x") ? 2 : 0;
    std::from_chars(text.data() + prefix, text.data() + text.size(), offset, 16);
    // Before every address, as the crash log does it.
    if (auto loaded = symbols.Load(request); !loaded) return loaded.GetError();
    const auto chain = symbols.Resolve(offset);
    for (const auto& frame : chain ? chain->frames : std::vector<tarvo::SourceFrame>(1)) {
      output += Shown(frame.function);
      output += '\n';
      output += Shown(frame.sourceFile);
      output += ':';
      output += std::to_string(frame.line);
      output += '\n';
    }
    output += '\n';
  }
  return output;
}

int Fail(const tarvo::Error& error) {
  std::fprintf(stderr, "%s\n", error.Text().ToStdString().c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  auto entries = tarvo::TakeConfigurationArguments(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: resolve_addresses BUNDLE ARCHITECTURE <OFFSETS\n");
    return 2;
  }
  const auto host =
      tarvo::Host::Start({.arguments = std::move(entries), .modules = {SYMBOLREADER_MODULE}});
  if (!host) return Fail(host.GetError());
  const auto symbols = tarvo::Bind<tarvo::InlineSymbolification>((*host)->Services());
  if (!symbols) return Fail(symbols.GetError());
  const auto output =
      Answer(**symbols, {.file = tarvo::Url::FromSystemPath(argv[1]), .architecture = argv[2]},
             ReadInput());
  if (!output) return Fail(output.GetError());
  std::fwrite(output->data(), 1, output->size(), stdout);
  return 0;
}
