#include "indexer/pdb/pdb_file.h"

#include <llvm/Support/BinaryByteStream.h>

#include <utility>

#include "files/debug_file_contents.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {

Result<std::unique_ptr<OpenedPdb>> OpenPdb(const std::string& path) {
  auto buffer = MapFile(path);
  if (!buffer) return buffer.GetError();
  auto pdb = std::make_unique<OpenedPdb>();
  pdb->file = std::make_unique<llvm::pdb::PDBFile>(
      path,
      std::make_unique<llvm::MemoryBufferByteStream>(*std::move(buffer), llvm::endianness::little),
      pdb->allocator);
  if (llvm::Error error = pdb->file->parseFileHeaders()) return DamagedPdb(path, std::move(error));
  if (llvm::Error error = pdb->file->parseStreamData()) return DamagedPdb(path, std::move(error));
  return pdb;
}

Error DamagedPdb(const std::string& path, llvm::Error error) {
  return Error::File(kSource.Here(),
                     Format("The debug file @ is damaged: @; expected a whole PDB.", path,
                            TextOf(std::move(error))),
                     Url::FromSystemPath(path));
}

}  // namespace tarvo::symbolreader
