#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tarvo/format.h"
#include "tarvo/framework.h"
#include "tarvo/result.h"

namespace tarvo::crashhandler {

/// A number that stands in a line in lower-case hexadecimal, without a prefix.
struct Hexadecimal {
  std::uint64_t value;
};

/// Writes lines that end with "\r\n" into a file that is open. After the first write that fails
/// nothing is written any more.
class LineWriter {
 public:
  explicit LineWriter(OutputFile& file) noexcept : file_(file) {}

  /// Writes one line made of `parts`: texts, numbers, Hexadecimal.
  template <typename... Parts>
  void Write(const Parts&... parts) {
    if (!result_) return;
    line_.clear();
    (Append(parts), ...);
    line_ += "\r\n";
    result_ = file_.Write(line_);
  }

  /// Success, or the error of the write that failed.
  [[nodiscard]] const Result<void>& Outcome() const noexcept { return result_; }

 private:
  template <typename Part>
  void Append(const Part& part) {
    if constexpr (std::same_as<Part, Hexadecimal>) {
      AppendArgument(line_, part.value, true);
    } else {
      AppendArgument(line_, part, false);
    }
  }

  OutputFile& file_;
  std::string line_;
  Result<void> result_;
};

}  // namespace tarvo::crashhandler
