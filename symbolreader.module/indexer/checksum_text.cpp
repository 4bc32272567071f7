#include "indexer/checksum_text.h"

#include <llvm/ADT/StringExtras.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace tarvo::symbolreader {
namespace {

constexpr std::array<std::pair<std::string_view, std::size_t>, 3> kAlgorithms = {
    {{kMd5, 16}, {kSha1, 20}, {kSha256, 32}}};

}  // namespace

std::string ChecksumText(std::string_view algorithm, std::string_view bytes) {
  const bool isKnown =
      std::ranges::find(kAlgorithms, std::pair(algorithm, bytes.size())) != kAlgorithms.end();
  if (!isKnown || std::ranges::all_of(bytes, [](char byte) { return byte == 0; })) return {};
  return std::string(algorithm) + ':' + llvm::toHex(bytes, /*LowerCase=*/true);
}

}  // namespace tarvo::symbolreader
