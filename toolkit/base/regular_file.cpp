#include "toolkit/base/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kRegularFile{"command/regular_file"};

Error OpenError(SourceLocation where, const std::string& path, const char* reason) {
  return Error::File(where, Format("Could not open \"@\": @", SafeText(path), reason),
                     Url::FromSystemPath(path));
}

}  // namespace

Result<RegularFile> OpenRegularFile(const std::string& path) {
  // A device may act when it is opened. What comes in the file's place meanwhile is looked at again
  // below, and without O_NONBLOCK the opening of a pipe would wait for its writer.
  struct stat status{};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    return OpenError(kRegularFile.Here(), path, "It is no regular file");
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return OpenError(kRegularFile.Here(), path, std::strerror(errno));
  RegularFile opened{File(fdopen(descriptor, "rb"))};
  if (!opened.file || fstat(descriptor, &status) != 0)
    return OpenError(kRegularFile.Here(), path, std::strerror(errno));
  if (!S_ISREG(status.st_mode))
    return OpenError(kRegularFile.Here(), path, "It is no regular file");
  opened.size = static_cast<std::uint64_t>(status.st_size);
  return opened;
}

}  // namespace tarvo::toolkit
