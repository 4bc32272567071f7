#pragma once

#include <cstddef>
#include <string_view>

#include "tarvo/data_dictionary.h"
#include "tarvo/error.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/object.h"
#include "tarvo/result.h"
#include "tarvo/string.h"

namespace tarvo {

/// A module of a crash report, whose symbols are looked for. Valid during the call.
struct ModuleQuery {
  const DataDictionary& crashLog;  ///< the report as it was read
  const DataDictionary& module;    ///< the module's entry in it
};

/// A component that knows where symbols are that no archive holds. Nobody has to bring one; without
/// it symbols come from archives alone. It needs an InlineSymbolification, which checks what it
/// offers. All operations are called in the thread that resolves; several reports may be resolved
/// at once, each in a thread of its own.
class SymbolFileSource : public Object {
 public:
  static constexpr std::string_view kInterfaceId = "net.tarvo.interface.symbolfilesource";

  /// `request`, symbols that the archive has under the module's name, with all that is known of the
  /// module (id, platform), so that others are refused. An illegal-argument error when they are
  /// known to be another module's.
  virtual Result<SymbolFileRequest> Check(const ModuleQuery& query, SymbolFileRequest request) = 0;

  /// The file to try as number `number`, from 0 on, after the ones before it, and what the archive
  /// has, were refused or are not there. The error says that there is no further one.
  virtual Result<SymbolFileRequest> Find(const ModuleQuery& query, std::size_t number) = 0;

  /// Told of each file that is there and is not used, with the reason; one of an archive too.
  virtual void Refused(const ModuleQuery& query, const SymbolFileRequest& request,
                       const Error& reason) = 0;

 protected:
  ~SymbolFileSource() = default;
};

}  // namespace tarvo
