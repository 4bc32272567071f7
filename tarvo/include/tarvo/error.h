#pragma once

#include <memory>
#include <utility>

#include "tarvo/source_location.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

/// Why an operation failed: an error class, a message, the place that found it and, for file
/// errors, the URL concerned. A value with shared immutable contents: copying one costs a
/// reference. There is no empty Error.
class Error {
 public:
  static constexpr std::string_view kIllegalArgument = "net.tarvo.error.illegalargument";
  static constexpr std::string_view kIllegalState = "net.tarvo.error.illegalstate";
  static constexpr std::string_view kOutOfMemory = "net.tarvo.error.outofmemory";
  static constexpr std::string_view kConversion = "net.tarvo.error.conversion";
  static constexpr std::string_view kFile = "net.tarvo.error.file";
  /// A failure with a message and no class of its own.
  static constexpr std::string_view kPlain = "net.tarvo.error";

  /// `classId` must be a string literal, or one of the constants above.
  Error(std::string_view classId, SourceLocation where, String message, Url url = {})
      : contents_(std::make_shared<const Contents>(
            Contents{classId, where, std::move(message), std::move(url)})) {}

  static Error IllegalArgument(SourceLocation where, String message) {
    return {kIllegalArgument, where, std::move(message)};
  }
  static Error IllegalState(SourceLocation where, String message) {
    return {kIllegalState, where, std::move(message)};
  }
  static Error OutOfMemory(SourceLocation where) { return {kOutOfMemory, where, {}}; }
  static Error Conversion(SourceLocation where, String message) {
    return {kConversion, where, std::move(message)};
  }
  static Error File(SourceLocation where, String message, tarvo::Url url) {
    return {kFile, where, std::move(message), std::move(url)};
  }
  static Error Plain(SourceLocation where, String message = {}) {
    return {kPlain, where, std::move(message)};
  }

  [[nodiscard]] std::string_view ClassId() const noexcept { return contents_->classId; }
  [[nodiscard]] const String& Message() const noexcept { return contents_->message; }
  [[nodiscard]] const SourceLocation& Where() const noexcept { return contents_->where; }
  /// The URL of a file error; empty for others.
  [[nodiscard]] const tarvo::Url& Url() const noexcept { return contents_->url; }

  /// The error's text as a person should read it: the message, or the class id when there is none.
  [[nodiscard]] String Text() const {
    return contents_->message.IsEmpty() ? String(contents_->classId) : contents_->message;
  }

 private:
  friend struct BorderLayout;
  struct Contents {
    std::string_view classId;
    SourceLocation where;
    String message;
    tarvo::Url url;
  };
  std::shared_ptr<const Contents> contents_;
};

}  // namespace tarvo
