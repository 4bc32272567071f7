#include "indexer/answer_loop.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <string>

#include "indexer_client/indexer_protocol.h"

namespace tarvo::symbolreader {
namespace {

bool Read(char* to, std::size_t size) {
  while (size > 0) {
    const ssize_t part = read(STDIN_FILENO, to, size);
    if (part < 0 && errno == EINTR) continue;
    if (part <= 0) return false;
    to += part;
    size -= static_cast<std::size_t>(part);
  }
  return true;
}

bool Write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t part = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (part < 0 && errno == EINTR) continue;
    if (part <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(part));
  }
  return true;
}

template <typename Record>
void Append(std::string& bytes, const Record& record) {
  bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
}

std::string Encode(const AddressChain& chain) {
  const auto frames = std::span(chain.frames).first(std::min(chain.frames.size(), kLongestChain));
  std::string bytes;
  Append(bytes, AnswerHeader{.frames = static_cast<std::uint32_t>(frames.size()),
                             .isSymbol = chain.symbolOffset.has_value(),
                             .symbolOffset = chain.symbolOffset.value_or(0)});
  for (const SourceFrame& frame : frames) {
    const std::string_view function = frame.function.View().substr(0, kMostAnswerText);
    const std::string_view file = frame.sourceFile.View().substr(0, kMostAnswerText);
    const std::string_view checksum = frame.sourceFileChecksum.View().substr(0, kMostAnswerText);
    Append(bytes, AnswerFrame{.functionSize = static_cast<std::uint32_t>(function.size()),
                              .fileSize = static_cast<std::uint32_t>(file.size()),
                              .checksumSize = static_cast<std::uint32_t>(checksum.size()),
                              .line = static_cast<std::uint32_t>(frame.line)});
    bytes += function;
    bytes += file;
    bytes += checksum;
  }
  return bytes;
}

}  // namespace

void Greet(const ImageRange& image) {
  const AnswerGreeting greeting{
      .isOpen = 1, .errorSize = 0, .imageStart = image.start, .imageEnd = image.end};
  (void)Write({reinterpret_cast<const char*>(&greeting), sizeof greeting});
}

void GreetWithError(std::string_view text) {
  text = text.substr(0, kMostAnswerText);
  const AnswerGreeting greeting{.errorSize = static_cast<std::uint32_t>(text.size())};
  std::string bytes(reinterpret_cast<const char*>(&greeting), sizeof greeting);
  (void)Write(bytes += text);
}

void AnswerQuestions(AddressReader& reader, unsigned seconds) {
  std::uint64_t address = 0;
  for (;;) {
    alarm(0);  // one may be left unasked for as long as one likes
    if (!Read(reinterpret_cast<char*>(&address), sizeof address)) return;
    alarm(seconds);
    if (!Write(Encode(reader.Find(address).value_or(AddressChain{})))) return;
  }
}

}  // namespace tarvo::symbolreader
