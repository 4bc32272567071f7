#include "toolkit/report/own_frame.h"

#include <charconv>

namespace tarvo::toolkit {
namespace {

constexpr std::string_view kAddressStart = "[";
constexpr std::string_view kNoProgramCounter = " PC: (nil))";

/// "libscene.so(update+0x1c) " into module, function and offset.
bool SplitName(std::string_view name, OwnFrame& frame) noexcept {
  if (name.empty()) return true;
  const std::size_t open = name.rfind('(');
  if (open == std::string_view::npos || !name.ends_with(") ")) return false;
  frame.module = name.substr(0, open);
  const std::string_view inside = name.substr(open + 1, name.size() - open - 3);
  const std::size_t sign = inside.find_last_of("+-");
  frame.function = inside.substr(0, sign);
  frame.offset = sign == std::string_view::npos ? std::string_view{} : inside.substr(sign);
  return true;
}

}  // namespace

std::optional<OwnFrame> ParseOwnFrame(std::string_view content) noexcept {
  const std::size_t nameEnd = content.rfind("]:\t(nil) (SP: ");
  if (nameEnd == std::string_view::npos || !content.ends_with(kNoProgramCounter))
    return std::nullopt;
  const std::string_view text = content.substr(0, nameEnd);
  const std::size_t bracket = text.rfind(kAddressStart);
  if (bracket == std::string_view::npos) return std::nullopt;
  const auto address = ParseAddress(text.substr(bracket + kAddressStart.size()));
  OwnFrame frame;
  if (!address || !SplitName(text.substr(0, bracket), frame)) return std::nullopt;
  frame.address = *address;
  frame.tail = content.substr(content.find(" (SP: ", nameEnd));
  frame.tail.remove_suffix(kNoProgramCounter.size());
  return frame;
}

std::optional<std::uint64_t> ParseAddress(std::string_view text) noexcept {
  if (!text.starts_with("0x")) return std::nullopt;
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data() + 2, end, number, 16);
  if (status != std::errc{} || stop != end) return std::nullopt;
  return number;
}

}  // namespace tarvo::toolkit
