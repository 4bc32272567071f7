#include "toolkit/pack/bundle.h"

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {

Error PackError(SourceLocation where, const std::string& path, const std::string& found,
                std::string_view expected) {
  return Error::File(
      where, Format("Cannot pack \"@\": found @, expected @.", SafeText(path), found, expected),
      Url::FromSystemPath(path));
}

}  // namespace tarvo::toolkit
