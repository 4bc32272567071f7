#include "indexer/answer_loop.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
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

std::string Encode(const std::optional<SourcePosition>& position) {
  AnswerHeader header;
  std::string_view function;
  std::string_view file;
  if (position) {
    function = position->function.View().substr(0, kMostAnswerText);
    file = position->sourceFile.View().substr(0, kMostAnswerText);
    header = {.isKnown = 1,
              .functionSize = static_cast<std::uint32_t>(function.size()),
              .fileSize = static_cast<std::uint32_t>(file.size()),
              .line = position->line};
  }
  std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
  bytes += function;
  bytes += file;
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
    if (!Write(Encode(reader.Find(address)))) return;
  }
}

}  // namespace tarvo::symbolreader
