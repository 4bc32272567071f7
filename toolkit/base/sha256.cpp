#include "toolkit/base/sha256.h"

#include <array>

namespace tarvo::toolkit {

void Sha256::Add(std::string_view bytes) noexcept {
  sha256_update(&state_, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

std::string Sha256::TakeHexadecimal() {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest;
  sha256_digest(&state_, digest.size(), digest.data());
  std::string text;
  for (const unsigned byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace tarvo::toolkit
