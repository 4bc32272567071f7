#include "archive/system_failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "tarvo/url.h"

namespace tarvo {

Error SystemFailure(SourceLocation where, int reason) {
  constexpr std::array kOfMachine = {EACCES, EDQUOT, EFBIG,  EIO,   EMFILE,
                                     ENFILE, ENOMEM, ENOSPC, EPERM, EROFS};
  const String text = std::generic_category().message(reason);
  const bool isOfMachine = std::ranges::find(kOfMachine, reason) != kOfMachine.end();
  return isOfMachine ? Error::File(where, text, Url()) : Error::Plain(where, text);
}

}  // namespace tarvo
