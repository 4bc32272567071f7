#include "indexer/index_writer.h"

#include <llvm/ADT/StringExtras.h>
#include <llvm/DebugInfo/GSYM/FileWriter.h>
#include <llvm/DebugInfo/GSYM/Header.h>
#include <llvm/DebugInfo/GSYM/OutputAggregator.h>
#include <llvm/Support/raw_ostream.h>
#include <llvm/Support/xxhash.h>

#include <cstddef>
#include <cstring>

#include "files/debug_file_contents.h"
#include "index/index_format.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kAlignment = 8;

/// GSYM's header has room for 20 bytes of the id.
std::vector<std::uint8_t> IdBytes(const std::string& id) {
  std::string bytes;
  if (!llvm::tryGetFromHex(id, bytes)) return {};
  bytes.resize(std::min(bytes.size(), sizeof(llvm::gsym::Header::UUID)));
  return {bytes.begin(), bytes.end()};
}

void AppendTrailer(llvm::SmallVector<char, 0>& bytes, const std::string& key) {
  bytes.resize((bytes.size() + kAlignment - 1) / kAlignment * kAlignment);
  if ((bytes.size() + sizeof(IndexTrailer)) % kPageSize == 0)
    bytes.resize(bytes.size() + kAlignment);
  const std::size_t at = bytes.size();
  bytes.resize(at + sizeof(IndexTrailer));
  IndexTrailer trailer{.fileSize = bytes.size(), .key = llvm::xxh3_64bits(key)};
  std::memcpy(&bytes[at], &trailer, sizeof trailer);
  trailer.checksum =
      llvm::xxh3_64bits(llvm::StringRef(bytes.data(), at + offsetof(IndexTrailer, checksum)));
  std::memcpy(&bytes[at], &trailer, sizeof trailer);
}

Error NotWritten(SourceLocation where, llvm::Error error) {
  return Error::IllegalState(where,
                             Format("The index could not be made: @.", TextOf(std::move(error))));
}

}  // namespace

void IndexWriter::Add(std::vector<llvm::gsym::FunctionInfo> entries) {
  for (llvm::gsym::FunctionInfo& entry : entries) creator_.addFunctionInfo(std::move(entry));
}

Result<llvm::SmallVector<char, 0>> IndexWriter::Finish(const std::string& key,
                                                       const std::string& id) {
  llvm::gsym::OutputAggregator log(nullptr);
  creator_.setUUID(IdBytes(id));
  if (llvm::Error error = creator_.finalize(log))
    return NotWritten(kSource.Here(), std::move(error));
  llvm::SmallVector<char, 0> bytes;
  llvm::raw_svector_ostream stream(bytes);
  llvm::gsym::FileWriter writer(stream, llvm::endianness::native);
  if (llvm::Error error = creator_.encode(writer))
    return NotWritten(kSource.Here(), std::move(error));
  AppendTrailer(bytes, key);
  return bytes;
}

void EntryBuilder::Add(std::uint64_t start, std::uint64_t end, std::uint32_t name,
                       const IndexRow* row) {
  llvm::gsym::FunctionInfo* last = entries_.empty() ? nullptr : &entries_.back();
  const bool continues = last != nullptr && last->endAddress() == start && last->Name == name &&
                         last->OptLineTable.has_value() == (row != nullptr) &&
                         (row == nullptr || last->OptLineTable->size() < kRowsPerEntry);
  if (!continues) {
    last = &entries_.emplace_back(start, end - start, name);
    if (row != nullptr) last->OptLineTable.emplace();
  }
  last->Range = {last->startAddress(), end};
  if (row == nullptr) return;
  const auto before = last->OptLineTable->last();
  if (!before || before->File != row->file || before->Line != row->line)
    last->OptLineTable->push({start, row->file, row->line});
}

}  // namespace tarvo::symbolreader
