#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tarvo/format.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/symbolification.h"

namespace tarvo::crashhandler {

/// What an address resolves to.
struct Answer {
  std::string function;
  std::string sourceFile;
  std::int64_t line = 0;
  std::vector<Answer> callers{};  ///< that it is inlined into
};

/// By the name of the symbol bundle and the offset. A bundle that is not in it cannot be loaded.
using AnswerTable = std::map<std::string, std::map<std::uint64_t, Answer>>;

/// Answers from a table and tells each call as a line: "load PATH ARCHITECTURE", "resolve
/// 0xOFFSET".
class RecordingSymbolification final : public Counted<Symbolification> {
 public:
  using Record = std::function<void(String)>;

  RecordingSymbolification(AnswerTable answers, Record record)
      : answers_(std::move(answers)), record_(std::move(record)) {}

  Result<void> Load(const Url& symbolFile, const String& architecture) override {
    record_(Format("load @ @", symbolFile, architecture));
    const auto found = answers_.find(symbolFile.Name().ToStdString());
    loaded_ = found == answers_.end() ? nullptr : &found->second;
    if (loaded_ == nullptr) return Error::IllegalState({}, "no symbols");
    return {};
  }

  Result<void> Resolve(std::uint64_t offset, String& sourceFile, std::int64_t& line,
                       String& function) override {
    record_(Format("resolve 0x@{x}", offset));
    const auto found = loaded_->find(offset);
    if (found == loaded_->end()) return Error::IllegalState({}, "no such address");
    sourceFile = found->second.sourceFile;
    line = found->second.line;
    function = found->second.function;
    return {};
  }

 private:
  AnswerTable answers_;
  Record record_;
  const std::map<std::uint64_t, Answer>* loaded_ = nullptr;
};

/// The same with the callers: "load PATH ARCHITECTURE" and "chain 0xOFFSET".
class RecordingInlineSymbolification final : public Counted<InlineSymbolification> {
 public:
  using Record = RecordingSymbolification::Record;

  RecordingInlineSymbolification(AnswerTable answers, Record record)
      : answers_(std::move(answers)), record_(std::move(record)) {}

  Result<void> Load(const SymbolFileRequest& request) override {
    record_(Format("load @ @", request.file, request.architecture));
    loaded_ = &answers_.at(request.file.Name().ToStdString());
    return {};
  }

  Result<AddressChain> Resolve(std::uint64_t offset) override {
    record_(Format("chain 0x@{x}", offset));
    const Answer& answer = loaded_->at(offset);
    AddressChain chain{.frames = {{answer.function, answer.sourceFile, answer.line}}};
    for (const Answer& caller : answer.callers)
      chain.frames.push_back({caller.function, caller.sourceFile, caller.line});
    return chain;
  }

 private:
  AnswerTable answers_;
  Record record_;
  const std::map<std::uint64_t, Answer>* loaded_ = nullptr;
};

}  // namespace tarvo::crashhandler
