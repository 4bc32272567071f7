#include "indexer/writing/part_builder.h"

#include <utility>

#include "index/index_format.h"
#include "index/varint.h"

namespace tarvo::symbolreader {

namespace {

const llvm::CachedHashStringRef kEmpty("", 0);

}  // namespace

PartBuilder::PartBuilder(bool namesLast) : namesLast_(namesLast) {
  part_.names.push_back({.text = kEmpty});
}

std::uint32_t PartBuilder::Number(Numbers& numbers, llvm::StringRef text, PartString string) {
  if (text.empty()) return 0;
  string.text = llvm::CachedHashStringRef(text);
  if (const auto known = numbers.find(string.text); known != numbers.end()) return known->second;
  if (!string.isLasting)
    string.text = llvm::CachedHashStringRef(text.copy(part_.storage), string.text.hash());
  const auto number = static_cast<std::uint32_t>(part_.names.size());
  part_.names.push_back(string);
  numbers[string.text] = number;
  return number;
}

std::uint32_t PartBuilder::NumberName(llvm::StringRef name) {
  return Number(names_, name, {.text = kEmpty, .isMangled = true, .isLasting = namesLast_});
}

std::uint32_t PartBuilder::NumberPath(llvm::StringRef path) {
  return Number(paths_, path, {.text = kEmpty});
}

std::uint32_t PartBuilder::NumberFile(llvm::StringRef path, llvm::StringRef checksum) {
  if (path.empty() || checksum.empty()) return NumberPath(path);
  std::string file = path.str();
  file += kChecksumMark;
  file += checksum;
  return NumberPath(file);
}

std::uint64_t PartBuilder::AddNode(const PartNode& node) {
  const std::uint64_t place = part_.body.size() + 1;
  AppendVarint(part_.body, node.name);
  AppendVarint(part_.body, node.caller == 0 ? 0 : (place - node.caller) << 1);
  if (node.caller != 0) {
    AppendVarint(part_.body, node.callFile);
    AppendVarint(part_.body, node.callLine);
  }
  return place;
}

std::uint64_t PartBuilder::AddSymbol(std::uint32_t name, std::uint64_t address) {
  const std::uint64_t place = part_.body.size() + 1;
  AppendVarint(part_.body, name);
  AppendVarint(part_.body, 1);
  AppendVarint(part_.body, address);
  return place;
}

void PartBuilder::AddRow(std::uint64_t start, std::uint64_t end, const PartRow& row) {
  if (start == rowEnd_ && row == row_) {
    rowEnd_ = end;
    return;
  }
  FlushRow();
  if (start != rowEnd_ || rowsInBlock_ == kRowsPerBlock) FlushBlock();
  row_ = row;
  rowStart_ = start;
  rowEnd_ = end;
}

void PartBuilder::FlushRow() {
  if (rowStart_ == rowEnd_) return;
  if (rowsInBlock_++ == 0) blockStart_ = rowStart_;
  AppendVarint(rows_, rowEnd_ - rowStart_);
  AppendSignedVarint(rows_, static_cast<std::int64_t>(row_.node - rowBefore_.node));
  AppendSignedVarint(rows_, std::int64_t{row_.file} - std::int64_t{rowBefore_.file});
  AppendSignedVarint(rows_, std::int64_t{row_.line} - std::int64_t{rowBefore_.line});
  rowBefore_ = row_;
}

void PartBuilder::FlushBlock() {
  if (rowsInBlock_ == 0) return;
  const std::uint64_t place = part_.body.size();
  part_.blocks.push_back({blockStart_, place});
  AppendVarint(part_.body, rowsInBlock_);
  // The number's own size does not count: the distance is from the block's start.
  AppendVarint(part_.body, place);
  part_.body += rows_;
  rows_.clear();
  rowsInBlock_ = 0;
  rowBefore_ = {};
}

Part PartBuilder::Finish() {
  FlushRow();
  FlushBlock();
  return std::move(part_);
}

}  // namespace tarvo::symbolreader
