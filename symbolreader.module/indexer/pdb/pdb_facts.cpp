#include "indexer/pdb/pdb_facts.h"

#include <llvm/DebugInfo/PDB/Native/DbiStream.h>
#include <llvm/DebugInfo/PDB/Native/InfoStream.h>
#include <llvm/DebugInfo/PDB/Native/PDBFile.h>
#include <llvm/Object/COFF.h>

#include <algorithm>

#include "files/debug_file_contents.h"
#include "files/pdb_identity.h"
#include "indexer/pdb/pdb_file.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

using namespace llvm::pdb;

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
  const auto pdb = OpenPdb(path);
  if (!pdb) return pdb.GetError();
  auto info = (*pdb)->file->getPDBInfoStream();
  if (!info) return DamagedPdb(path, info.takeError());
  auto debug = (*pdb)->file->getPDBDbiStream();
  if (!debug) return DamagedPdb(path, debug.takeError());
  facts.id = SignatureText(info->getGuid().Guid, debug->getAge());
  if (const auto* image = file.Inside().object.get()) {
    const auto reference = PdbReferenceIn(*image);
    const std::string expected = reference ? reference->signature : "none";
    if (facts.id == expected) return facts;
    return Error::File(kSource.Here(),
                       Format("The debug file @ is of another build than @: found the signature @, "
                              "expected @.",
                              path, facts.path, facts.id, expected),
                       Url::FromSystemPath(path));
  }
  facts.architecture = MachineName(static_cast<std::uint16_t>(debug->getMachineType()));
  facts.image = {.start = 0, .end = ImageEnd(*debug)};
  if (auto fits = CheckArchitecture(path, facts.architecture, architecture); !fits)
    return fits.GetError();
  return facts;
}

}  // namespace tarvo::symbolreader
