#include <llvm/DebugInfo/DIContext.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/Symbolize/SymbolizableObjectFile.h>

#include <optional>

#include "files/debug_file_contents.h"
#include "indexer/address_reader.h"
#include "indexer/demangle.h"
#include "indexer/dwarf/source_files.h"

namespace tarvo::symbolreader {
namespace {

using llvm::DILineInfo;
using llvm::symbolize::SymbolizableObjectFile;

String Known(const std::string& text) {
  return text == DILineInfo::BadString ? String() : String(text);
}

SourceFrame FrameOf(const DILineInfo& info) {
  SourceFrame frame{
      .function = Known(info.FunctionName), .sourceFile = Known(info.FileName), .line = info.Line};
  if (!frame.function.IsEmpty()) frame.function = Demangle(frame.function);
  return frame;
}

class DwarfReader final : public AddressReader {
 public:
  explicit DwarfReader(std::shared_ptr<const DebugFile> file) : file_(std::move(file)) {
    const auto& object = *file_->Inside().object;
    const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
    auto context = llvm::DWARFContext::create(
        object, llvm::DWARFContext::ProcessDebugRelocations::Process, nullptr, "", ignore, ignore);
    checksums_.emplace(*context);
    auto made =
        SymbolizableObjectFile::create(&object, std::move(context), /*UntagAddresses=*/false);
    if (made)
      object_ = std::move(*made);
    else
      ignore(made.takeError());
  }

  std::optional<AddressChain> Find(std::uint64_t address) override;

 private:
  std::shared_ptr<const DebugFile> file_;
  std::unique_ptr<SymbolizableObjectFile> object_;  ///< null when the symbol table is broken
  std::optional<SourceChecksums> checksums_;        ///< of the object's context
};

std::optional<AddressChain> DwarfReader::Find(std::uint64_t address) {
  const llvm::DILineInfoSpecifier wanted(
      llvm::DILineInfoSpecifier::FileLineInfoKind::AbsoluteFilePath,
      llvm::DILineInfoSpecifier::FunctionNameKind::LinkageName);
  if (object_ == nullptr) return std::nullopt;
  const llvm::DIInliningInfo frames = object_->symbolizeInlinedCode(
      {address, llvm::object::SectionedAddress::UndefSection}, wanted, /*UseSymbolTable=*/true);
  if (frames.getNumberOfFrames() == 0) return std::nullopt;
  AddressChain chain;
  for (std::uint32_t i = 0; i < frames.getNumberOfFrames(); ++i) {
    SourceFrame& frame = chain.frames.emplace_back(FrameOf(frames.getFrame(i)));
    frame.sourceFileChecksum = checksums_->Find(address, frame.sourceFile.ToStdString());
  }
  if (chain.frames.size() == 1 && chain.frames.front() == SourceFrame{}) return std::nullopt;
  return chain;
}

}  // namespace

std::unique_ptr<AddressReader> OpenDwarf(std::shared_ptr<const DebugFile> file) {
  return std::make_unique<DwarfReader>(std::move(file));
}

}  // namespace tarvo::symbolreader
