#include <llvm/DebugInfo/PDB/Native/DbiStream.h>
#include <llvm/DebugInfo/PDB/Native/InfoStream.h>
#include <llvm/DebugInfo/PDB/Native/PDBFile.h>
#include <llvm/Object/COFF.h>
#include <llvm/Support/Allocator.h>
#include <llvm/Support/BinaryByteStream.h>

#include <algorithm>

#include "files/debug_file_contents.h"
#include "files/pdb_identity.h"
#include "indexer/pdb/pdb_facts.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

using namespace llvm::pdb;

Error PdbError(SourceLocation where, const std::string& path, const String& text) {
  return Error::File(where, text, Url::FromSystemPath(path));
}

Error Damaged(SourceLocation where, const std::string& path, llvm::Error error) {
  return PdbError(where, path,
                  Format("The debug file @ is damaged: @; expected a whole PDB.", path,
                         TextOf(std::move(error))));
}

/// The first address behind the image's sections, which a PDB lists relative to the image.
std::uint64_t ImageEnd(const DbiStream& stream) {
  std::uint64_t end = 0;
  for (const llvm::object::coff_section& section : stream.getSectionHeaders())
    end = std::max<std::uint64_t>(end, std::uint64_t{section.VirtualAddress} + section.VirtualSize);
  return end;
}

}  // namespace

Result<DebugFileFacts> ReadPdbFacts(const DebugFile& file, std::string_view architecture) {
  DebugFileFacts facts = file.Facts();
  const std::string& path = facts.pdbPath;
  auto buffer = MapFile(path);
  if (!buffer) return buffer.GetError();
  llvm::BumpPtrAllocator allocator;
  PDBFile pdb(
      path,
      std::make_unique<llvm::MemoryBufferByteStream>(*std::move(buffer), llvm::endianness::little),
      allocator);
  if (llvm::Error error = pdb.parseFileHeaders())
    return Damaged(kSource.Here(), path, std::move(error));
  if (llvm::Error error = pdb.parseStreamData())
    return Damaged(kSource.Here(), path, std::move(error));
  auto info = pdb.getPDBInfoStream();
  if (!info) return Damaged(kSource.Here(), path, info.takeError());
  auto debug = pdb.getPDBDbiStream();
  if (!debug) return Damaged(kSource.Here(), path, debug.takeError());
  facts.id = SignatureText(info->getGuid().Guid, debug->getAge());
  if (const auto* image = file.Inside().object.get()) {
    const auto reference = PdbReferenceIn(*image);
    const std::string expected = reference ? reference->signature : "none";
    if (facts.id == expected) return facts;
    return PdbError(kSource.Here(), path,
                    Format("The debug file @ is of another build than @: found the signature @, "
                           "expected @.",
                           path, facts.path, facts.id, expected));
  }
  facts.architecture = MachineName(static_cast<std::uint16_t>(debug->getMachineType()));
  facts.image = {.start = 0, .end = ImageEnd(*debug)};
  if (auto fits = CheckArchitecture(path, facts.architecture, architecture); !fits)
    return fits.GetError();
  return facts;
}

}  // namespace tarvo::symbolreader
