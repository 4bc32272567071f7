#include "command/output_width.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace tarvo::command {
namespace {

std::size_t ToWidth(std::size_t columns) {
  constexpr std::size_t kLeast = 40, kMost = 1000;
  return std::clamp(columns, kLeast, kMost);
}

}  // namespace

std::optional<std::size_t> OutputWidth() {
  if (const char* text = std::getenv("COLUMNS")) {
    const std::string_view columns = text;
    std::size_t width = 0;
    const auto [stop, status] =
        std::from_chars(columns.data(), columns.data() + columns.size(), width);
    if (status == std::errc{} && stop == columns.data() + columns.size() && width > 0)
      return ToWidth(width);
  }
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return ToWidth(size.ws_col);
  return std::nullopt;
}

}  // namespace tarvo::command
