#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tarvo/object.h"
#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

/// A function at an address, and the place in it. Empty texts and line 0 mean "not known".
struct SourceFrame {
  String function{};
  String sourceFile{};
  std::int64_t line = 0;
  /// Of the file's bytes when it was compiled, where the compiler has noted it: the algorithm,
  /// "md5", "sha1" or "sha256", a colon and the lower-case hexadecimal digits.
  String sourceFileChecksum{};

  friend bool operator==(const SourceFrame&, const SourceFrame&) = default;
};

/// What an address stands for.
struct AddressChain {
  /// Innermost first: each function is inlined into the one behind it, at that one's line; the last
  /// one has code of its own. At least one.
  std::vector<SourceFrame> frames{};
  /// Set where only a symbol table knows the address: how many bytes it lies behind its symbol.
  std::optional<std::uint64_t> symbolOffset{};

  friend bool operator==(const AddressChain&, const AddressChain&) = default;
};

/// What symbols are wanted, and what is known of the module that they are for.
struct SymbolFileRequest {
  Url file{};             ///< the symbol bundle
  String architecture{};  ///< only where the report states one; else that of the file is taken
  /// The module's build id, UUID, or a PDB's signature and age, in lower-case hexadecimal; a file
  /// of another one is refused, by an illegal-argument error as for all that does not fit. Empty
  /// where it is not known.
  String id{};
  /// Whether a file without debug information will do, for the names of its symbol tables.
  bool takesSymbolTable = false;
  /// The system that the module ran on, "linux", "macos" or "windows"; a file in another one's
  /// format is refused. Empty where it is not known.
  String platform{};

  friend bool operator==(const SymbolFileRequest&, const SymbolFileRequest&) = default;
};

/// Symbolification with inlined functions: a second interface of a symbol reader. A component that
/// brings it registers it under the class name of its Symbolification, and it is bound only where
/// that one is; where it is not bound, clients ask the Symbolification. Objects are made and used
/// like those of Symbolification.
class InlineSymbolification : public Object {
 public:
  static constexpr std::string_view kInterfaceId = "net.tarvo.interface.inlinesymbolification";

  /// Prepares for look-ups. Replaces what was loaded before; loading the same again is cheap.
  virtual Result<void> Load(const SymbolFileRequest& request) = 0;

  /// Resolves `offset`, an address relative to the module's base.
  virtual Result<AddressChain> Resolve(std::uint64_t offset) = 0;

 protected:
  ~InlineSymbolification() = default;
};

using InlineSymbolificationRef = Ref<InlineSymbolification>;

}  // namespace tarvo
