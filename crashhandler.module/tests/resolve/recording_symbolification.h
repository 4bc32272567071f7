#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tarvo/format.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/symbol_file_source.h"
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

/// The same with the callers: "load PATH ARCHITECTURE ID" and "chain 0xOFFSET". A function without
/// a line is one that a symbol table knows.
class RecordingInlineSymbolification final : public Counted<InlineSymbolification> {
 public:
  using Record = RecordingSymbolification::Record;

  RecordingInlineSymbolification(AnswerTable answers, Record record)
      : answers_(std::move(answers)), record_(std::move(record)) {}

  Result<void> Load(const SymbolFileRequest& request) override {
    record_(Format("load @ @@", request.file, request.architecture, request.id));
    const auto found = answers_.find(request.file.Name().ToStdString());
    if (found == answers_.end()) return Error::IllegalState({}, "no symbols");
    loaded_ = &found->second;
    return {};
  }

  Result<AddressChain> Resolve(std::uint64_t offset) override {
    record_(Format("chain 0x@{x}", offset));
    const Answer& answer = loaded_->at(offset);
    AddressChain chain{.frames = {{answer.function, answer.sourceFile, answer.line}}};
    for (const Answer& caller : answer.callers)
      chain.frames.push_back({caller.function, caller.sourceFile, caller.line});
    if (answer.line == 0) chain.symbolOffset = 5;
    return chain;
  }

 private:
  AnswerTable answers_;
  Record record_;
  const std::map<std::uint64_t, Answer>* loaded_ = nullptr;
};

/// Offers the files of a list for every module, and tells what was refused.
class RecordingSource final : public Counted<SymbolFileSource> {
 public:
  RecordingSource(std::vector<std::string> files, RecordingSymbolification::Record record)
      : files_(std::move(files)), record_(std::move(record)) {}

  Result<SymbolFileRequest> Check(const ModuleQuery&, SymbolFileRequest request) override {
    request.id = "abcd";
    return request;
  }
  Result<SymbolFileRequest> Find(const ModuleQuery&, std::size_t number) override {
    if (number == files_.size()) return Error::IllegalState({}, "no further one");
    return SymbolFileRequest{.file = Url::FromSystemPath(files_[number]), .id = "abcd"};
  }
  void Refused(const ModuleQuery&, const SymbolFileRequest& request, const Error& why) override {
    record_(Format("refused @: @", request.file.Name(), why));
  }

 private:
  std::vector<std::string> files_;
  RecordingSymbolification::Record record_;
};

}  // namespace tarvo::crashhandler
