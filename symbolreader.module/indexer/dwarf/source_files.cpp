#include "indexer/dwarf/source_files.h"

#include <llvm/DebugInfo/DWARF/DWARFCompileUnit.h>

#include <string_view>
#include <utility>

#include "indexer/checksum_text.h"

namespace tarvo::symbolreader {

std::optional<std::string> SourcePath(const llvm::DWARFDebugLine::Prologue& table,
                                      std::uint64_t index,
                                      const std::string& compilationDirectory) {
  std::string path;
  const bool isListed =
      table.getFileNameByIndex(index, compilationDirectory,
                               llvm::DILineInfoSpecifier::FileLineInfoKind::AbsoluteFilePath, path);
  return isListed ? std::optional(std::move(path)) : std::nullopt;
}

std::string SourceChecksum(const llvm::DWARFDebugLine::Prologue& table, std::uint64_t index) {
  if (!table.ContentTypes.HasMD5 || !table.hasFileAtIndex(index)) return {};
  const llvm::MD5::MD5Result& bytes = table.getFileNameEntry(index).Checksum;
  return ChecksumText(kMd5,
                      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string SourceChecksums::Find(std::uint64_t address, const std::string& path) {
  llvm::DWARFUnit* unit = context_.getCompileUnitForCodeAddress(address);
  if (unit == nullptr) return {};
  if (unit != unit_) Read(*unit);
  const auto known = checksums_.find(path);
  return known == checksums_.end() ? std::string() : known->second;
}

void SourceChecksums::Read(llvm::DWARFUnit& unit) {
  unit_ = &unit;
  checksums_.clear();
  const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
  auto found = context_.getLineTableForUnit(&unit, ignore);
  if (!found) return ignore(found.takeError());
  const llvm::DWARFDebugLine::LineTable* table = *found;
  if (table == nullptr || !table->Prologue.ContentTypes.HasMD5) return;
  const char* directory = unit.getCompilationDir();
  const std::uint64_t count = table->Prologue.FileNames.size();
  for (std::uint64_t index = 0; index < count; ++index) {
    auto path = SourcePath(table->Prologue, index, directory == nullptr ? "" : directory);
    if (!path) continue;
    std::string checksum = SourceChecksum(table->Prologue, index);
    const auto [known, isNew] = checksums_.try_emplace(*std::move(path), checksum);
    if (!isNew && known->second != checksum) known->second.clear();
  }
}

}  // namespace tarvo::symbolreader
