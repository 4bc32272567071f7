#pragma once

#include <string>

namespace tarvo {

/// The directory of the running program, absolute, links followed. Empty where the process file
/// system is missing.
[[nodiscard]] std::string DirectoryOfProgram();

/// The directory below which the program's parts are: its own or, for a program in "bin" beside a
/// "lib", the one above, unless that is the system's.
[[nodiscard]] std::string DirectoryOfApplication();

/// The directory of the host library (of the program where it is linked in), absolute, links
/// followed.
[[nodiscard]] std::string DirectoryOfHostLibrary();

/// What stands before the last "/" of an absolute path.
[[nodiscard]] std::string DirectoryOf(const std::string& absolutePath);

}  // namespace tarvo
