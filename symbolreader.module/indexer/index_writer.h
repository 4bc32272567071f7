#pragma once

#include <llvm/ADT/SmallVector.h>
#include <llvm/DebugInfo/GSYM/GsymCreator.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// A run of addresses with one answer to each: a name and, from row to row, a line.
struct IndexRow {
  std::uint64_t start = 0;
  std::uint32_t file = 0;
  std::uint32_t line = 0;
};

/// Collects the entries of an index and writes it. Adding may go on in several threads at once.
class IndexWriter {
 public:
  IndexWriter() : creator_(/*Quiet=*/true) {}

  std::uint32_t NumberFile(const std::string& path) { return creator_.insertFile(path); }
  /// Gives a name's number. Names are stored as they come: demangled by the caller.
  std::uint32_t NumberName(std::string_view name) { return creator_.insertString(name); }

  /// Takes over finished entries.
  void Add(std::vector<llvm::gsym::FunctionInfo> entries);

  /// The whole file for the index named `key`; `id` is the debug file's, for people who look into
  /// the index. An error when no entry was added.
  Result<llvm::SmallVector<char, 0>> Finish(const std::string& key, const std::string& id);

 private:
  llvm::gsym::GsymCreator creator_;
};

/// Builds one thread's entries from answers that come in ascending order.
class EntryBuilder {
 public:
  /// The answer for [start, end): `row` null where no line is known. Joins what continues the
  /// answer before, and starts a new entry where the name changes, where lines begin or end to be
  /// known, and every kRowsPerEntry rows.
  void Add(std::uint64_t start, std::uint64_t end, std::uint32_t name, const IndexRow* row);

  std::vector<llvm::gsym::FunctionInfo> Finish() { return std::move(entries_); }

 private:
  std::vector<llvm::gsym::FunctionInfo> entries_;
};

}  // namespace tarvo::symbolreader
