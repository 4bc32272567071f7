// tarvo-symbol-indexer index FILE ARCHITECTURE MEGABYTES SECONDS KEY OUTPUT
// tarvo-symbol-indexer answer FILE ARCHITECTURE MEGABYTES SECONDS
// tarvo-symbol-indexer describe FILE identity|contents MEGABYTES SECONDS
//
// Reads debug information for the symbol reader module, which starts it: `index` writes a file's
// index, `answer` answers questions about single addresses (indexer_protocol.h), `describe` prints
// what a file says of itself (description.h). It is a process of its own because debug information
// is not to be trusted: what breaks, hangs or fills the memory is this process. MEGABYTES limits
// its memory, SECONDS the making of an index or of one answer.
//
// Exit status: 0 done, 1 the file cannot be read within the limits, 2 wrong usage, 3 the index
// cannot be written. The reason is on standard error. Its end by SIGALRM means that the time was
// up.

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "indexer/answer_loop.h"
#include "indexer/description.h"
#include "indexer/index_converter.h"
#include "indexer/limits.h"
#include "indexer/pdb/pdb_converter.h"
#include "indexer/pdb/pdb_facts.h"
#include "indexer_client/indexer_protocol.h"

namespace tarvo::symbolreader {
namespace {

constexpr unsigned kMostThreads = 8;
constexpr int kExitUsage = 2;
constexpr int kExitUnwritten = 3;
constexpr std::string_view kUsage =
    "usage: index FILE ARCHITECTURE MEGABYTES SECONDS KEY OUTPUT | "
    "answer FILE ARCHITECTURE MEGABYTES SECONDS | "
    "describe FILE identity|contents MEGABYTES SECONDS";

int Fail(std::string_view text, int status) {
  std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  return status;
}

bool ReadNumber(std::string_view text, unsigned& number) {
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  return status == std::errc{} && end == text.data() + text.size() && number > 0;
}

Result<void> Convert(const DebugFile& file, std::string_view architecture, const std::string& key,
                     const std::string& output) {
  if (!file.Facts().pdbPath.empty()) {
    const auto facts = ReadPdbFacts(file, architecture);
    return facts ? ConvertPdbToIndex(*facts, key, output) : Result<void>(facts.GetError());
  }
  const unsigned threads = std::clamp(std::thread::hardware_concurrency(), 2U, kMostThreads);
  return ConvertToIndex(file, key, output, threads);
}

int MakeIndex(const DebugFile& file, std::string_view architecture, const std::string& key,
              const std::string& output) {
  // The thread that started this process waits for it; without it nobody wants the index.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const auto index = Convert(file, architecture, key, output);
  if (!index) {
    const bool isUnwritten = index.GetError().Url() == Url::FromSystemPath(output);
    return Fail(index.GetError().Text(), isUnwritten ? kExitUnwritten : kExitUnreadable);
  }
  // What was read and built needs no orderly end; freeing it would take a good part of the time.
  std::fflush(nullptr);
  std::_Exit(0);
}

Result<std::unique_ptr<AddressReader>> OpenReader(std::shared_ptr<const DebugFile> file,
                                                  DebugFileFacts& facts,
                                                  std::string_view architecture) {
  facts = file->Facts();
  if (facts.pdbPath.empty()) return OpenDwarf(std::move(file));
  auto complete = ReadPdbFacts(*file, architecture);
  if (!complete) return complete.GetError();
  facts = *std::move(complete);
  return OpenPdb(facts);
}

int Answer(std::shared_ptr<const DebugFile> file, std::string_view architecture, unsigned seconds) {
  DebugFileFacts facts;
  const auto reader = OpenReader(std::move(file), facts, architecture);
  if (!reader) {
    GreetWithError(reader.GetError().Text());
    return kExitUnreadable;
  }
  Greet(facts.image);
  AnswerQuestions(**reader, seconds);
  return 0;
}

int PrintDescription(const std::string& path, std::string_view depth) {
  const auto text =
      Describe(path, depth == "contents" ? DescriptionDepth::Contents : DescriptionDepth::Identity);
  if (!text) return Fail(text.GetError().Text(), kExitUnreadable);
  std::fwrite(text->data(), 1, text->size(), stdout);
  return std::fflush(stdout) == 0 ? 0 : kExitUnwritten;
}

int Main(std::span<char*> arguments) {
  const std::string_view mode = arguments.size() > 1 ? arguments[1] : "";
  const std::size_t expected = mode == "index" ? 8 : mode == "answer" || mode == "describe" ? 6 : 0;
  unsigned megabytes = 0;
  unsigned seconds = 0;
  if (arguments.size() != expected || !ReadNumber(arguments[4], megabytes) ||
      !ReadNumber(arguments[5], seconds))
    return Fail(kUsage, kExitUsage);
  LimitMemory(std::uint64_t{megabytes} << 20);
  alarm(seconds);
  if (mode == "describe") return PrintDescription(arguments[2], arguments[3]);
  const auto file =
      OpenDebugFile(arguments[2], {.architecture = arguments[3], .takesSymbolTable = true});
  if (!file) {
    if (mode == "answer") GreetWithError(file.GetError().Text());
    return Fail(file.GetError().Text(), kExitUnreadable);
  }
  return mode == "index" ? MakeIndex(**file, arguments[3], arguments[6], arguments[7])
                         : Answer(*file, arguments[3], seconds);
}

}  // namespace
}  // namespace tarvo::symbolreader

int main(int argc, char** argv) try {
  return tarvo::symbolreader::Main({argv, static_cast<std::size_t>(argc)});
} catch (const std::exception& exception) {
  return tarvo::symbolreader::Fail(exception.what(), tarvo::symbolreader::kExitUnreadable);
}
