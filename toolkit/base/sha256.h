#pragma once

#include <nettle/sha2.h>

#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// SHA-256 (FIPS 180-4) of bytes that come in pieces.
class Sha256 {
 public:
  Sha256() noexcept { sha256_init(&state_); }
  void Add(std::string_view bytes) noexcept;
  /// 64 lower-case hexadecimal digits of all that was added; starts anew.
  [[nodiscard]] std::string TakeHexadecimal();

 private:
  sha256_ctx state_;
};

}  // namespace tarvo::toolkit
