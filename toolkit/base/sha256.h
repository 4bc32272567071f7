#pragma once

#include <nettle/sha2.h>

#include <string>
#include <string_view>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// SHA-256 (FIPS 180-4) of bytes that come in pieces, by the library Nettle, which is loaded when
/// it is asked for: most subcommands do without.
class Sha256 {
 public:
  /// Loads the library, once; before anything is hashed. An illegal-state error with the loader's
  /// reason when it is not there. Any thread.
  static Result<void> Load();

  Sha256() noexcept;

  void Add(std::string_view bytes) noexcept;
  /// 64 lower-case hexadecimal digits of all that was added; starts anew.
  [[nodiscard]] std::string TakeHexadecimal();

 private:
  sha256_ctx state_;
};

}  // namespace tarvo::toolkit
