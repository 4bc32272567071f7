#pragma once

#include <cstdint>
#include <source_location>
#include <string_view>

namespace tarvo {

/// The place in the sources that an error or a line of output speaks of: the path of the piece
/// inside the project without an extension, and the line.
struct SourceLocation {
  std::string_view path;
  std::uint32_t line = 0;
};

/// One piece of the sources, a file or a folder that speaks as one. Every source file that makes
/// errors or output holds one, named after it, so that several may be compiled as one:
///
///     constexpr tarvo::SourceFile kJobQueue{"tarvo/source/job_queue"};
///     return tarvo::Error::IllegalState(kJobQueue.Here(), "Not supported");
///
/// Or a folder shares one, `kSource`, so that its errors carry the folder's path and the line in
/// the file that made them.
class SourceFile {
 public:
  /// `path` must outlive the process's use of it: a string literal.
  consteval explicit SourceFile(std::string_view path) : path_(path) {}

  [[nodiscard]] constexpr SourceLocation Here(
      std::source_location where = std::source_location::current()) const {
    return {path_, where.line()};
  }
  [[nodiscard]] constexpr std::string_view Path() const { return path_; }

 private:
  std::string_view path_;
};

}  // namespace tarvo
