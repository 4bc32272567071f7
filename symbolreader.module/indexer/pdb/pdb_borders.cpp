#include "indexer/pdb/pdb_borders.h"

#include <llvm/DebugInfo/CodeView/DebugLinesSubsection.h>
#include <llvm/DebugInfo/CodeView/SymbolDeserializer.h>
#include <llvm/DebugInfo/CodeView/SymbolRecord.h>
#include <llvm/DebugInfo/PDB/Native/DbiStream.h>
#include <llvm/DebugInfo/PDB/Native/PDBFile.h>
#include <llvm/DebugInfo/PDB/Native/PublicsStream.h>
#include <llvm/DebugInfo/PDB/Native/SymbolStream.h>
#include <llvm/Object/COFF.h>

#include <algorithm>

#include "indexer/pdb/pdb_file.h"
#include "indexer/pdb/pdb_modules.h"

namespace tarvo::symbolreader {
namespace {

using namespace llvm::codeview;
using namespace llvm::pdb;

class BorderReader {
 public:
  explicit BorderReader(const DbiStream& stream) : sections_(stream.getSectionHeaders()) {
    for (const llvm::object::coff_section& section : sections_) {
      Add(section.VirtualAddress);
      Add(std::uint64_t{section.VirtualAddress} + section.VirtualSize);
    }
  }

  void ReadModules(PDBFile& pdb, const DbiStream& debug);
  void ReadPublics(PDBFile& pdb);

  std::vector<std::uint64_t> Finish() {
    std::ranges::sort(borders_);
    const auto rest = std::ranges::unique(borders_);
    borders_.erase(rest.begin(), rest.end());
    return std::move(borders_);
  }

 private:
  void Add(std::uint64_t address) { borders_.push_back(address); }
  /// The address of a place in a section, which are numbered from 1 on; sections that do not exist
  /// lie at 0.
  [[nodiscard]] std::uint64_t AddressOf(std::uint32_t section, std::uint64_t offset) const {
    const bool isThere = section > 0 && section <= sections_.size();
    return isThere ? sections_[section - 1].VirtualAddress + offset : 0;
  }
  void AddFunction(const CVSymbol& symbol);
  void AddInlined(const CVSymbol& symbol);
  void AddLines(const DebugLinesSubsectionRef& lines);

  llvm::FixedStreamArray<llvm::object::coff_section> sections_;
  std::vector<std::uint64_t> borders_;
  std::uint64_t function_ = 0;  ///< the start of the last one
};

void BorderReader::AddFunction(const CVSymbol& symbol) {
  auto function = SymbolDeserializer::deserializeAs<ProcSym>(symbol);
  if (!function) return llvm::consumeError(function.takeError());
  function_ = AddressOf(function->Segment, function->CodeOffset);
  Add(function_);
  Add(function_ + function->CodeSize);
}

/// Offsets count from the start of the function around.
void BorderReader::AddInlined(const CVSymbol& symbol) {
  auto site = SymbolDeserializer::deserializeAs<InlineSiteSym>(symbol);
  if (!site) return llvm::consumeError(site.takeError());
  std::uint64_t address = function_;
  for (const auto& annotation : site->annotations()) {
    switch (annotation.OpCode) {
      case BinaryAnnotationsOpCode::CodeOffset:
      case BinaryAnnotationsOpCode::ChangeCodeOffset:
      case BinaryAnnotationsOpCode::ChangeCodeOffsetAndLineOffset:
        address += annotation.U1;
        Add(address);
        break;
      case BinaryAnnotationsOpCode::ChangeCodeLength:
        Add(address + annotation.U1);
        break;
      case BinaryAnnotationsOpCode::ChangeCodeLengthAndCodeOffset:
        address += annotation.U2;
        Add(address);
        Add(address + annotation.U1);
        break;
      default:
        break;
    }
  }
}

/// Of several lines at one offset LLVM's reader gives the first for that very byte, and the last
/// for those behind it.
void BorderReader::AddLines(const DebugLinesSubsectionRef& lines) {
  const LineFragmentHeader* header = lines.header();
  const std::uint64_t start = AddressOf(header->RelocSegment, header->RelocOffset);
  Add(start);
  Add(start + header->CodeSize);
  for (const LineColumnEntry& file : lines) {
    for (const LineNumberEntry& line : file.LineNumbers) {
      Add(start + line.Offset);
      Add(start + line.Offset + 1);
    }
  }
}

void BorderReader::ReadModules(PDBFile& pdb, const DbiStream& debug) {
  ReadPdbModules(pdb, debug,
                 {.onFunction = [this](const CVSymbol& symbol) { AddFunction(symbol); },
                  .onInlined = [this](const CVSymbol& symbol) { AddInlined(symbol); },
                  .onLines = [this](const DebugLinesSubsectionRef& lines) { AddLines(lines); }});
}

void BorderReader::ReadPublics(PDBFile& pdb) {
  auto symbols = pdb.getPDBSymbolStream();
  if (!symbols) return llvm::consumeError(symbols.takeError());
  bool hasError = false;
  for (const CVSymbol& symbol : symbols->getSymbols(&hasError)) {
    if (symbol.kind() != SymbolKind::S_PUB32) continue;
    auto exported = SymbolDeserializer::deserializeAs<PublicSym32>(symbol);
    if (exported)
      Add(AddressOf(exported->Segment, exported->Offset));
    else
      llvm::consumeError(exported.takeError());
  }
}

}  // namespace

Result<std::vector<std::uint64_t>> ReadPdbBorders(const std::string& path) {
  const auto opened = OpenPdb(path);
  if (!opened) return opened.GetError();
  PDBFile& pdb = *(*opened)->file;
  auto debug = pdb.getPDBDbiStream();
  if (!debug) return DamagedPdb(path, debug.takeError());
  BorderReader reader(*debug);
  reader.ReadModules(pdb, *debug);
  reader.ReadPublics(pdb);
  return reader.Finish();
}

}  // namespace tarvo::symbolreader
