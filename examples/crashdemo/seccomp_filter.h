#pragma once

#include <cstdint>

/// Answers system call `number` with `action` (SECCOMP_RET_…) in every thread of the process, for
/// good. False when the kernel refuses.
bool InstallSeccompFilter(long number, std::uint32_t action);
