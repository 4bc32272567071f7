#pragma once

#include <llvm/ADT/CachedHashString.h>
#include <llvm/ADT/DenseMap.h>
#include <llvm/ADT/StringRef.h>
#include <llvm/Support/Allocator.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::symbolreader {

/// A string of a part. Functions' names are demangled when the index is written.
struct PartString {
  llvm::CachedHashStringRef text;
  bool isMangled = false;
  bool isLasting = false;  ///< lives as long as the index is made; else in the part
};

/// Where a block of rows begins.
struct PartBlock {
  std::uint64_t start = 0;  ///< its first address
  std::uint64_t place = 0;  ///< in the part's body
};

/// A part of an index as index_format.h has it, ready to be written; its own strings live in
/// `storage`, the others in the debug file.
struct Part {
  std::vector<PartString> names;
  std::string body;
  std::vector<PartBlock> blocks;
  llvm::BumpPtrAllocator storage;
};

/// A function as a row names it.
struct PartNode {
  std::uint32_t name = 0;
  std::uint64_t caller = 0;  ///< what AddNode gave for the function that it is inlined into, or 0
  std::uint32_t callFile = 0;
  std::uint32_t callLine = 0;
};

/// What is known of some addresses.
struct PartRow {
  std::uint64_t node = 0;  ///< what AddNode gave; 0 without a function
  std::uint32_t file = 0;
  std::uint32_t line = 0;
  friend bool operator==(const PartRow&, const PartRow&) = default;
};

/// Builds one part. Used by one thread.
class PartBuilder {
 public:
  /// `namesLast` says that names lie in memory that lasts until the index is made. Others, and
  /// paths, are copied.
  explicit PartBuilder(bool namesLast);

  /// Numbers of strings within the part; the empty one's is 0.
  std::uint32_t NumberName(llvm::StringRef name);
  std::uint32_t NumberPath(llvm::StringRef path);
  /// That of a source file with its checksum, as SourceFrame has it; empty where none is known.
  std::uint32_t NumberFile(llvm::StringRef path, llvm::StringRef checksum);

  /// Adds a function, and gives what rows and inlined functions name it by.
  std::uint64_t AddNode(const PartNode& node);
  /// Adds a symbol that debug information does not know, at `address`.
  std::uint64_t AddSymbol(std::uint32_t name, std::uint64_t address);

  /// What is known of [start, end); calls come in ascending order. Equal neighbours are joined.
  void AddRow(std::uint64_t start, std::uint64_t end, const PartRow& row);

  Part Finish();

 private:
  using Numbers = llvm::DenseMap<llvm::CachedHashStringRef, std::uint32_t>;
  std::uint32_t Number(Numbers& numbers, llvm::StringRef text, PartString string);
  void FlushRow();
  void FlushBlock();

  const bool namesLast_;
  Part part_;
  Numbers names_;
  Numbers paths_;

  PartRow row_;  ///< the last one, which may still grow
  std::uint64_t rowStart_ = 0;
  std::uint64_t rowEnd_ = 0;

  std::string rows_;  ///< of the block at hand
  std::uint32_t rowsInBlock_ = 0;
  std::uint64_t blockStart_ = 0;
  PartRow rowBefore_;
};

}  // namespace tarvo::symbolreader
