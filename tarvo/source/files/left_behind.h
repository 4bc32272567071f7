#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tarvo {

/// What a process makes under a passing name it holds locked (flock) until the name goes: the
/// kernel drops the lock of a killed process, which tells that its maker is gone.

/// What these names start with.
inline constexpr std::string_view kPassingName = ".tarvo-";

/// Whether what is open and locked as `descriptor` has no maker any more. On a file system that
/// other machines may share, where a lock need not tell of theirs, it must not have been changed
/// for kForeignAge.
[[nodiscard]] bool IsLeftBehind(int descriptor) noexcept;
inline constexpr std::int64_t kForeignAge = 24 * 60 * 60;  ///< seconds

/// Calls `clear` with each name in `directory` that starts with kPassingName; the first time that
/// this process comes to the directory under this `kind`, later calls do nothing. A directory that
/// cannot be listed has none.
void ForEachPassingName(const std::string& directory, std::string_view kind,
                        const std::function<void(const std::string& name)>& clear);

}  // namespace tarvo
