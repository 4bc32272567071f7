#include "archive/entry_path.h"

#include <algorithm>
#include <ranges>

#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kEntryPath{"tarvo/source/entry_path"};
constexpr std::size_t kMaximumNameInMessage = 256;

/// The names between the "/" of `path`, without empty ones and ".".
std::vector<std::string> NamesOf(std::string_view path) {
  std::vector<std::string> names;
  for (const auto part : std::views::split(path, '/')) {
    const std::string_view name(part.begin(), part.end());
    if (!name.empty() && name != ".") names.emplace_back(name);
  }
  return names;
}

Error Refused(SourceLocation where, std::string_view reason) { return Error::Plain(where, reason); }

}  // namespace

std::string NameForMessage(std::string_view name) {
  std::string shown(name.substr(0, kMaximumNameInMessage));
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::ranges::replace_if(shown, isControl, '?');
  return shown;
}

Result<std::vector<std::string>> EntryNames(std::string_view path) {
  if (path.starts_with('/')) return Refused(kEntryPath.Here(), "its path is absolute");
  std::vector<std::string> names = NamesOf(path);
  if (std::ranges::find(names, "..") != names.end())
    return Refused(kEntryPath.Here(), "its path holds \"..\"");
  if (names.size() > kMaximumEntryDepth) {
    return Refused(kEntryPath.Here(), Format("its path is @ names deep, at most @ are allowed",
                                             names.size(), kMaximumEntryDepth));
  }
  return names;
}

Result<void> CheckLinkTarget(std::string_view target, std::size_t depth) {
  const std::vector<std::string> names = NamesOf(target);
  const auto down = std::ranges::find_if_not(names, [](const auto& name) { return name == ".."; });
  const bool staysInside = !target.empty() && !target.starts_with('/') &&
                           static_cast<std::size_t>(down - names.begin()) <= depth &&
                           std::find(down, names.end(), "..") == names.end();
  if (staysInside) return {};
  return Refused(
      kEntryPath.Here(),
      Format("it is a link to \"@\", which may lead out of the directory", NameForMessage(target)));
}

}  // namespace tarvo
