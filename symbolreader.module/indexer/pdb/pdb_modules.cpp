#include "indexer/pdb/pdb_modules.h"

#include <llvm/DebugInfo/CodeView/SymbolDeserializer.h>
#include <llvm/DebugInfo/CodeView/SymbolRecord.h>
#include <llvm/DebugInfo/MSF/MappedBlockStream.h>
#include <llvm/DebugInfo/PDB/Native/ModuleDebugStream.h>

#include <utility>

#include "indexer/pdb/pdb_file.h"

namespace tarvo::symbolreader {
namespace {

using namespace llvm::codeview;
using namespace llvm::pdb;

void ReadSymbols(const ModuleDebugStreamRef& stream, const PdbModuleReader& reader) {
  for (const CVSymbol& symbol : stream.getSymbolArray()) {
    switch (symbol.kind()) {
      case SymbolKind::S_GPROC32:
      case SymbolKind::S_LPROC32:
      case SymbolKind::S_GPROC32_ID:
      case SymbolKind::S_LPROC32_ID:
      case SymbolKind::S_LPROC32_DPC:
      case SymbolKind::S_LPROC32_DPC_ID:
        reader.onFunction(symbol);
        break;
      case SymbolKind::S_INLINESITE:
      case SymbolKind::S_INLINESITE2:
        reader.onInlined(symbol);
        break;
      default:
        break;
    }
  }
}

void ReadLines(const ModuleDebugStreamRef& stream, const PdbModuleReader& reader) {
  for (const DebugSubsectionRecord& subsection : stream.subsections()) {
    if (subsection.kind() != DebugSubsectionKind::Lines) continue;
    DebugLinesSubsectionRef lines;
    if (llvm::Error error = lines.initialize(llvm::BinaryStreamReader(subsection.getRecordData())))
      llvm::consumeError(std::move(error));
    else
      reader.onLines(lines);
  }
}

}  // namespace

void ReadPdbModules(PDBFile& pdb, const DbiStream& debug, const PdbModuleReader& reader) {
  const DbiModuleList& modules = debug.modules();
  for (std::uint32_t i = 0; i < modules.getModuleCount(); ++i) {
    const DbiModuleDescriptor module = modules.getModuleDescriptor(i);
    auto bytes = pdb.createIndexedStream(module.getModuleStreamIndex());
    if (bytes == nullptr) continue;
    ModuleDebugStreamRef stream(module, std::move(bytes));
    if (llvm::Error error = stream.reload()) {
      llvm::consumeError(std::move(error));
      continue;
    }
    ReadSymbols(stream, reader);
    ReadLines(stream, reader);
  }
}

Result<PdbCounts> CountPdb(const std::string& path) {
  const auto opened = OpenPdb(path);
  if (!opened) return opened.GetError();
  PDBFile& pdb = *(*opened)->file;
  auto debug = pdb.getPDBDbiStream();
  if (!debug) return DamagedPdb(path, debug.takeError());
  PdbCounts counts;
  ReadPdbModules(pdb, *debug,
                 {.onFunction = [&](const CVSymbol&) { ++counts.functions; },
                  .onInlined = [&](const CVSymbol&) { ++counts.inlined; },
                  .onLines =
                      [&](const DebugLinesSubsectionRef& lines) {
                        for (const LineColumnEntry& file : lines)
                          counts.lines += file.LineNumbers.size();
                      }});
  return counts;
}

}  // namespace tarvo::symbolreader
