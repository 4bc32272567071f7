#pragma once

#include <llvm/ADT/StringMap.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Support/MemoryBuffer.h>

#include <memory>
#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// The sections of debug information that functions and lines are read from: those in the file as
/// they are mapped, compressed ones unpacked once. What else there is (variables' places, types by
/// signature) takes neither time nor memory.
class DebugSections {
 public:
  /// Whether a file has its debug information for itself, or is a part of another one's (.dwo,
  /// .dwp).
  enum class Kind { Whole, Split };

  /// Unpacks in `threads` threads. `object` and its memory must live as long as the sections. An
  /// illegal-state error when a section is damaged or larger than memory allows.
  static Result<DebugSections> Read(const llvm::object::ObjectFile& object, unsigned threads,
                                    Kind kind = Kind::Whole);

  DebugSections(DebugSections&&) noexcept;
  DebugSections& operator=(DebugSections&&) = delete;
  ~DebugSections();

  /// LLVM's view of them; made once.
  [[nodiscard]] llvm::DWARFContext& Context() const { return *context_; }

  /// Says that `part` of a section is not needed for now: memory of the mapped file is given back,
  /// and read again where it is asked for after all.
  void LetGo(llvm::StringRef part) const;

 private:
  class Unpacked;

  DebugSections();
  Result<void> Unpack(const llvm::object::ObjectFile& object, unsigned threads);

  llvm::StringRef file_;
  llvm::StringMap<std::unique_ptr<llvm::MemoryBuffer>> sections_;
  std::vector<std::unique_ptr<Unpacked>> unpacked_;
  std::unique_ptr<llvm::DWARFContext> context_;
};

}  // namespace tarvo::symbolreader
