#pragma once

#include <optional>
#include <string_view>

namespace tarvo::toolkit {

/// Whether `checksum` is that of `bytes`: "md5:", "sha1:" or "sha256:" with lower-case hexadecimal
/// digits, as debug information tells it. Nothing where it is no such text, or the library Nettle,
/// which is loaded for this, is not there.
[[nodiscard]] std::optional<bool> HasChecksum(std::string_view bytes, std::string_view checksum);

}  // namespace tarvo::toolkit
