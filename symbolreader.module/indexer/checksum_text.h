#pragma once

#include <string>
#include <string_view>

namespace tarvo::symbolreader {

// The algorithms of checksums, as SourceFrame names them.
inline constexpr std::string_view kMd5 = "md5";
inline constexpr std::string_view kSha1 = "sha1";
inline constexpr std::string_view kSha256 = "sha256";

/// The checksum of a source file as SourceFrame has it, from its bytes as a debug file has them.
/// Empty where the algorithm is none of these or has another length, and for zeros, by which some
/// compilers say that they know none.
[[nodiscard]] std::string ChecksumText(std::string_view algorithm, std::string_view bytes);

}  // namespace tarvo::symbolreader
