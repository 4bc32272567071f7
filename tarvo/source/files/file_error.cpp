#include "files/file_error.h"

#include <system_error>

#include "tarvo/format.h"

namespace tarvo {
namespace {

Error Refused(SourceLocation where, std::string_view action, const Url& url,
              std::string_view reason) {
  return Error::File(where, Format("Could not @ \"@\": @", action, url, reason), url);
}

}  // namespace

Error FileError(SourceLocation where, std::string_view action, const Url& url, int errorNumber) {
  return Refused(where, action, url, std::generic_category().message(errorNumber));
}

Result<std::string> PathForSystem(SourceLocation where, std::string_view action, const Url& url) {
  if (url.IsEmpty()) return Refused(where, action, url, "the path is empty");
  if (url.SystemPath().Contains(std::string_view("\0", 1)))
    return Refused(where, action, url, "the path holds a NUL byte");
  return url.SystemPath().ToStdString();
}

}  // namespace tarvo
