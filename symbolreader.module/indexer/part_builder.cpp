#include "indexer/part_builder.h"

#include <utility>

#include "index/index_format.h"
#include "index/varint.h"

namespace tarvo::symbolreader {

PartBuilder::PartBuilder() { part_.names.push_back({llvm::CachedHashStringRef("", 0), false}); }

std::uint32_t PartBuilder::Number(llvm::CachedHashStringRef text, bool isMangled) {
  part_.names.push_back({text, isMangled});
  return static_cast<std::uint32_t>(part_.names.size() - 1);
}

std::uint32_t PartBuilder::NumberName(llvm::StringRef name) {
  if (name.empty()) return 0;
  const llvm::CachedHashStringRef text(name);
  const auto [entry, isNew] = names_.try_emplace(text, 0);
  if (isNew) entry->second = Number(text, true);
  return entry->second;
}

std::uint32_t PartBuilder::NumberPath(llvm::StringRef path) {
  if (path.empty()) return 0;
  llvm::CachedHashStringRef text(path);
  if (const auto known = paths_.find(text); known != paths_.end()) return known->second;
  text = llvm::CachedHashStringRef(path.copy(part_.storage), text.hash());
  return paths_[text] = Number(text, false);
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
