#include "json/json_writer.h"

#include <cmath>
#include <string>

#include "json/json_text.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr std::size_t kBufferBytes = 16 * 1024;

/// Writes values one by one; after the sink's first error it writes no more.
class Writer {
 public:
  Writer(const ByteSink& sink, JsonForm form) : sink_(sink), isLine_(form == JsonForm::Line) {}

  void operator()(std::monostate) { buffer_ += "null"; }
  void operator()(const String& text) { AppendJsonString(buffer_, text); }
  void operator()(const Url& url) { AppendJsonString(buffer_, url.Text()); }
  void operator()(double number) {
    if (!std::isfinite(number)) return (*this)(std::monostate());
    AppendArgument(buffer_, number, false);
  }
  template <std::integral T>  // bool too
  void operator()(T number) {
    AppendArgument(buffer_, number, false);
  }
  void operator()(const DataArray& array) {
    WriteContainer('[', array, ']',
                   [this](const DataValue& element) { std::visit(*this, element.Get()); });
  }
  void operator()(const DataDictionary& dictionary) {
    WriteContainer('{', dictionary, '}', [this](const DataDictionary::Entry& entry) {
      AppendJsonString(buffer_, entry.key);
      buffer_ += isLine_ ? ":" : ": ";
      std::visit(*this, entry.value.Get());
    });
  }

  Result<void> Finish() {
    buffer_ += '\n';
    Flush();
    return outcome_;
  }

 private:
  template <typename Container, typename WriteItem>
  void WriteContainer(char open, const Container& items, char close, WriteItem writeItem) {
    buffer_ += open;
    ++depth_;
    bool isFirst = true;
    for (const auto& item : items) {
      if (!outcome_) return;
      if (!isFirst) buffer_ += ',';
      isFirst = false;
      StartLine();
      writeItem(item);
      if (buffer_.size() >= kBufferBytes) Flush();
    }
    --depth_;
    if (!isFirst) StartLine();
    buffer_ += close;
  }

  void StartLine() {
    if (isLine_) return;
    buffer_ += '\n';
    buffer_.append(2 * depth_, ' ');
  }

  void Flush() {
    if (outcome_) outcome_ = sink_(buffer_);
    buffer_.clear();
  }

  const ByteSink& sink_;
  const bool isLine_;
  std::string buffer_;
  std::size_t depth_ = 0;
  Result<void> outcome_;
};

}  // namespace

Result<void> WriteJson(const DataDictionary& tree, const ByteSink& sink, JsonForm form) {
  Writer writer(sink, form);
  writer(tree);
  return writer.Finish();
}

}  // namespace tarvo
