#include "indexer_client/indexer_source.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <span>

#include "indexer_client/indexer_protocol.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

/// One running process. Closing its socket ends it.
class IndexerConnection {
 public:
  IndexerConnection() = default;
  ~IndexerConnection() { Stop(); }
  IndexerConnection(const IndexerConnection&) = delete;
  IndexerConnection& operator=(const IndexerConnection&) = delete;

  /// Starts the process and takes its greeting: the image, or why there is none.
  Result<ImageRange> Start(const std::vector<std::string>& arguments);
  void Stop();
  /// Whether an answer came; `chain` stays empty when the answer is that nothing is known.
  [[nodiscard]] bool Ask(std::uint64_t address, std::optional<AddressChain>& chain);

 private:
  int Spawn(const std::vector<std::string>& arguments);
  Result<ImageRange> ReceiveGreeting(const std::string& debugFile);
  [[nodiscard]] bool Receive(std::span<char> bytes);
  [[nodiscard]] bool ReceiveText(std::uint32_t size, String& text);
  [[nodiscard]] bool ReceiveFrame(SourceFrame& frame);

  int socket_ = -1;
  pid_t pid_ = 0;
};

int IndexerConnection::Spawn(const std::vector<std::string>& arguments) {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) return errno;
  const int failure = StartIndexer(arguments, {.input = sockets[1], .output = sockets[1]}, pid_);
  close(sockets[1]);
  if (failure == 0)
    socket_ = sockets[0];
  else
    close(sockets[0]);
  return failure;
}

Result<ImageRange> IndexerConnection::Start(const std::vector<std::string>& arguments) {
  const std::string& debugFile = arguments[1];
  if (const int failure = Spawn(arguments); failure != 0) {
    return Error::File(kSource.Here(),
                       Format("The debug file @ cannot be read: the program @ did not start: @.",
                              debugFile, IndexerProgram(), std::strerror(failure)),
                       Url::FromSystemPath(debugFile));
  }
  auto image = ReceiveGreeting(debugFile);
  if (!image) Stop();
  return image;
}

Result<ImageRange> IndexerConnection::ReceiveGreeting(const std::string& debugFile) {
  AnswerGreeting greeting;
  String error;
  if (!Receive({reinterpret_cast<char*>(&greeting), sizeof greeting}) ||
      !ReceiveText(greeting.errorSize, error)) {
    error = Format(
        "The debug file @ is damaged: reading it ended the program that did; expected a "
        "whole file.",
        debugFile);
    greeting.isOpen = 0;
  }
  if (greeting.isOpen != 0) return ImageRange{greeting.imageStart, greeting.imageEnd};
  return Error::File(kSource.Here(), error, Url::FromSystemPath(debugFile));
}

void IndexerConnection::Stop() {
  if (socket_ < 0) return;
  close(socket_);
  socket_ = -1;
  (void)AwaitIndexer(pid_);
}

bool IndexerConnection::Receive(std::span<char> bytes) {
  while (!bytes.empty()) {
    const ssize_t size = recv(socket_, bytes.data(), bytes.size(), 0);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(size));
  }
  return true;
}

bool IndexerConnection::ReceiveText(std::uint32_t size, String& text) {
  if (size > kMostAnswerText) return false;
  bool isThere = true;
  text = String::Build(size, [&](char* to) {
    isThere = Receive({to, size});
    return size;
  });
  return isThere;
}

bool IndexerConnection::ReceiveFrame(SourceFrame& frame) {
  AnswerFrame header;
  if (!Receive({reinterpret_cast<char*>(&header), sizeof header})) return false;
  frame.line = header.line;
  return ReceiveText(header.functionSize, frame.function) &&
         ReceiveText(header.fileSize, frame.sourceFile) &&
         ReceiveText(header.checksumSize, frame.sourceFileChecksum);
}

bool IndexerConnection::Ask(std::uint64_t address, std::optional<AddressChain>& chain) {
  // 8 bytes always fit into the empty socket; a process that is gone must raise no signal here.
  if (socket_ < 0 || send(socket_, &address, sizeof address, MSG_NOSIGNAL) != sizeof address)
    return false;
  AnswerHeader header;
  if (!Receive({reinterpret_cast<char*>(&header), sizeof header})) return false;
  if (header.frames > kLongestChain) return false;
  AddressChain answer{.frames = std::vector<SourceFrame>(header.frames)};
  for (SourceFrame& frame : answer.frames)
    if (!ReceiveFrame(frame)) return false;
  if (header.isSymbol != 0) answer.symbolOffset = header.symbolOffset;
  if (!answer.frames.empty()) chain = std::move(answer);
  return true;
}

class IndexerSource final : public SymbolSource {
 public:
  IndexerSource(std::vector<std::string> arguments, std::size_t bytes)
      : arguments_(std::move(arguments)), bytes_(bytes) {}

  Result<ImageRange> Start() { return indexer_.Start(arguments_); }
  std::optional<AddressChain> Find(std::uint64_t address, NameMemo& names) const override;
  std::size_t Bytes() const override { return bytes_; }

 private:
  const std::vector<std::string> arguments_;
  const std::size_t bytes_;
  mutable std::mutex mutex_;
  mutable IndexerConnection indexer_;
  mutable int restarts_ = 0;
};

std::optional<AddressChain> IndexerSource::Find(std::uint64_t address, NameMemo& /*names*/) const {
  const std::scoped_lock lock(mutex_);
  std::optional<AddressChain> chain;
  if (indexer_.Ask(address, chain)) return chain;
  indexer_.Stop();
  if (restarts_ < kMostRestarts) {
    ++restarts_;
    (void)static_cast<bool>(indexer_.Start(arguments_));
  }
  return std::nullopt;
}

}  // namespace

Result<IndexerAnswers> MakeIndexerSource(const std::string& debugFile,
                                         const std::string& architecture,
                                         const IndexerLimits& limits, std::size_t bytes) {
  auto source = std::make_unique<IndexerSource>(
      std::vector<std::string>{"answer", debugFile, architecture, std::to_string(limits.megabytes),
                               std::to_string(std::min(limits.seconds, kMostAnswerSeconds))},
      bytes);
  const auto image = source->Start();
  if (!image) return image.GetError();
  return IndexerAnswers{std::move(source), *image};
}

}  // namespace tarvo::symbolreader
