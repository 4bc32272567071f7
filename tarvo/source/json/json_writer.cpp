#include "json/json_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "json/json_text.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr std::size_t kBufferBytes = 16 * 1024;
constexpr std::size_t kLeastRoom = 512;
constexpr std::size_t kPieceBytes = 4 * 1024;
constexpr std::size_t kMostNumberBytes = 64;

/// The end of a document. It grows for what is put there, and is given away when it is full, if
/// somebody takes it.
class Buffer {
 public:
  Buffer(const ByteSink* sink, std::size_t room)
      : sink_(sink), bytes_(std::max(room, kLeastRoom), '\0') {}

  /// Puts at most `most` bytes: `write(char*)` returns the end of what it writes.
  template <typename Write>
  void Put(std::size_t most, Write write) {
    if (bytes_.size() - size_ < most) bytes_.resize(std::max(2 * bytes_.size(), size_ + most));
    size_ = static_cast<std::size_t>(write(bytes_.data() + size_) - bytes_.data());
  }
  void Put(char c) {
    if (size_ == bytes_.size()) bytes_.resize(2 * size_);
    bytes_[size_++] = c;
  }
  void Put(std::string_view text) {
    for (const char c : text) Put(c);  // all are short
  }
  void PutBlanks(std::size_t count) {
    Put(count, [&](char* to) { return std::fill_n(to, count, ' '); });
  }

  void FlushFull() {
    if (sink_ != nullptr && size_ >= kBufferBytes) Flush();
  }
  void Flush() {
    if (outcome_) outcome_ = (*sink_)({bytes_.data(), size_});
    size_ = 0;
  }
  [[nodiscard]] const Result<void>& Outcome() const noexcept { return outcome_; }
  std::string Take() {
    bytes_.resize(size_);
    return std::move(bytes_);
  }

 private:
  const ByteSink* sink_;
  std::string bytes_;  ///< the first size_ are of the document
  std::size_t size_ = 0;
  Result<void> outcome_;
};

/// Writes values one by one; after the sink's first error it writes no more.
class Writer {
 public:
  Writer(Buffer& buffer, JsonForm form) : buffer_(buffer), isLine_(form == JsonForm::Line) {}

  void operator()(std::monostate) { buffer_.Put("null"); }
  void operator()(const String& text) { PutText(text); }
  void operator()(const Url& url) { PutText(url.Text()); }
  void operator()(bool value) { buffer_.Put(value ? "true" : "false"); }
  void operator()(double number) {
    if (!std::isfinite(number)) return (*this)(std::monostate());
    std::string text;
    AppendArgument(text, number, false);
    buffer_.Put(text);
  }
  template <std::integral T>
  void operator()(T number) {
    buffer_.Put(kMostNumberBytes,
                [&](char* to) { return std::to_chars(to, to + kMostNumberBytes, number).ptr; });
  }
  void operator()(const DataArray& array) {
    WriteContainer('[', array, ']', [this](const DataValue& element) { Write(element); });
  }
  void operator()(const DataDictionary& dictionary) {
    WriteContainer('{', dictionary, '}', [this](const DataDictionary::Entry& entry) {
      PutText(entry.key);
      buffer_.Put(':');
      if (!isLine_) buffer_.Put(' ');
      Write(entry.value);
    });
  }

 private:
  void Write(const DataValue& value) {
    if (const auto* text = value.As<String>()) return PutText(*text);  // what most values are
    std::visit(*this, value.Get());
  }

  /// A long text goes piece by piece, since the room for the worst is six times what most take.
  void PutText(std::string_view text) {
    const std::string_view first =
        text.size() <= kPieceBytes ? text : FirstCharacters(text, kPieceBytes);
    text.remove_prefix(first.size());
    buffer_.Put(kJsonBytesEach * first.size() + 2, [&](char* to) {
      *to = '"';
      to = PutJsonCharacters(to + 1, first);
      if (text.empty()) *to++ = '"';
      return to;
    });
    if (!text.empty()) PutRest(text);
  }
  void PutRest(std::string_view text) {
    while (!text.empty() && buffer_.Outcome()) {
      buffer_.FlushFull();
      const std::string_view piece = FirstCharacters(text, kPieceBytes);
      text.remove_prefix(piece.size());
      buffer_.Put(kJsonBytesEach * piece.size(),
                  [&](char* to) { return PutJsonCharacters(to, piece); });
    }
    buffer_.Put('"');
  }

  template <typename Container, typename WriteItem>
  void WriteContainer(char open, const Container& items, char close, WriteItem writeItem) {
    buffer_.Put(open);
    ++depth_;
    bool isFirst = true;
    for (const auto& item : items) {
      if (!buffer_.Outcome()) return;
      if (!isFirst) buffer_.Put(',');
      isFirst = false;
      StartLine();
      writeItem(item);
      buffer_.FlushFull();
    }
    --depth_;
    if (!isFirst) StartLine();
    buffer_.Put(close);
  }

  void StartLine() {
    if (isLine_) return;
    buffer_.Put('\n');
    buffer_.PutBlanks(2 * depth_);
  }

  Buffer& buffer_;
  const bool isLine_;
  std::size_t depth_ = 0;
};

}  // namespace

Result<void> WriteJson(const DataDictionary& tree, const ByteSink& sink, JsonForm form) {
  Buffer buffer(&sink, kBufferBytes + kJsonBytesEach * kPieceBytes);
  Writer(buffer, form)(tree);
  buffer.Put('\n');
  buffer.Flush();
  return buffer.Outcome();
}

std::string JsonDocument(const DataDictionary& tree, JsonForm form, std::size_t expected) {
  Buffer buffer(nullptr, expected);
  Writer(buffer, form)(tree);
  buffer.Put('\n');
  return buffer.Take();
}

}  // namespace tarvo
