#include "toolkit/base/checksum.h"

#include <nettle/nettle-meta.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "files/bound_library.h"
#include "toolkit/base/hexadecimal.h"

namespace tarvo::toolkit {
namespace {

constexpr const char* kNettleLibrary = "libnettle.so.8";
constexpr std::array<std::string_view, 3> kAlgorithms = {"md5", "sha1", "sha256"};

/// Nettle's description of the algorithm; null for one that is none of these.
const nettle_hash* FindAlgorithm(std::string_view name) {
  static const auto lookUp = [] {
    decltype(&::nettle_lookup_hash) function = nullptr;
    (void)LibraryBinder(kNettleLibrary).Bind("nettle_lookup_hash", function);
    return function;
  }();
  const auto* known = std::ranges::find(kAlgorithms, name);
  if (lookUp == nullptr || known == kAlgorithms.end()) return nullptr;
  return lookUp(std::string(name).c_str());
}

}  // namespace

std::optional<bool> HasChecksum(std::string_view bytes, std::string_view checksum) {
  const std::size_t colon = std::min(checksum.find(':'), checksum.size());
  const nettle_hash* algorithm = FindAlgorithm(checksum.substr(0, colon));
  if (algorithm == nullptr ||
      checksum.size() != colon + 1 + std::size_t{2} * algorithm->digest_size)
    return std::nullopt;
  std::vector<std::max_align_t> context(algorithm->context_size / sizeof(std::max_align_t) + 1);
  std::vector<std::uint8_t> digest(algorithm->digest_size);
  algorithm->init(context.data());
  algorithm->update(context.data(), bytes.size(),
                    reinterpret_cast<const std::uint8_t*>(bytes.data()));
  algorithm->digest(context.data(), digest.size(), digest.data());
  return checksum.substr(colon + 1) == Hexadecimal(digest);
}

}  // namespace tarvo::toolkit
