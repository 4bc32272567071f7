#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tarvo/result.h"

namespace tarvo {

/// How unpacking came to its end.
struct PackedEnd {
  std::string damage{};  ///< why that is not the end of what was packed; empty: it is
};

/// Unpacks what gzip or xz has packed, from the position of the descriptor `file` on, and gives it
/// piece by piece. Several packed files one behind the other are one, as with gzip and xz
/// themselves; other bytes behind a gzip file are passed over. Damaged or cut off ones give all
/// that can be had before.
///
/// `take`'s first error ends it and is returned. Other errors are plain: reading failed, or zlib or
/// liblzma, which are loaded at the first call that needs them, are not there. Memory: some 100 KB,
/// with xz as much as the file asks for, at most kMostXzMemory.
using TakeBytes = std::function<Result<void>(std::string_view bytes)>;
Result<PackedEnd> UnpackStream(int file, const TakeBytes& take);

/// `xz -9` needs 65 MiB.
inline constexpr std::uint64_t kMostXzMemory = std::uint64_t{256} << 20;

}  // namespace tarvo
