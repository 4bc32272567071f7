// PDBSymbolFunc's accessors need it complete.
#include <llvm/DebugInfo/PDB/PDBSymbolTypeFunctionSig.h>

#include <llvm/DebugInfo/PDB/IPDBEnumChildren.h>
#include <llvm/DebugInfo/PDB/IPDBLineNumber.h>
#include <llvm/DebugInfo/PDB/IPDBSourceFile.h>
#include <llvm/DebugInfo/PDB/Native/NativeSession.h>
#include <llvm/DebugInfo/PDB/PDBSymbolFunc.h>
#include <llvm/DebugInfo/PDB/PDBSymbolPublicSymbol.h>

#include "files/debug_file_contents.h"
#include "indexer/address_reader.h"
#include "indexer/checksum_text.h"
#include "indexer/demangle.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

using namespace llvm::pdb;

class PdbReader final : public AddressReader {
 public:
  PdbReader(std::unique_ptr<IPDBSession> session, std::uint64_t imageStart, bool isDecorated)
      : session_(std::move(session)), isDecorated_(isDecorated) {
    session_->setLoadAddress(imageStart);
  }

  std::optional<AddressChain> Find(std::uint64_t address) override;

 private:
  [[nodiscard]] std::string FunctionName(std::uint64_t address,
                                         const PDBSymbolFunc* function) const;
  bool Place(std::unique_ptr<IPDBEnumLineNumbers> lines, SourceFrame& frame) const;

  std::unique_ptr<IPDBSession> session_;
  bool isDecorated_;  ///< names carry their calling conventions, as on 32-bit x86
};

/// The name of a C function without its decoration: "_name" for cdecl, "_name@8" for stdcall,
/// "@name@8" for fastcall, "name@@8" for vectorcall.
std::string Undecorated(std::string_view name) {
  const std::size_t at = name.rfind('@');
  const bool hasSize = at != std::string_view::npos &&
                       name.find_first_not_of("0123456789", at + 1) == std::string_view::npos;
  std::string_view plain = hasSize ? name.substr(0, at) : name;
  if (hasSize && plain.ends_with('@')) return std::string(plain.substr(0, plain.size() - 1));
  if (plain.starts_with('_') || plain.starts_with('@')) plain.remove_prefix(1);
  return std::string(plain);
}

/// The public symbol carries the parameters; it counts where it stands for the same function.
std::string PdbReader::FunctionName(std::uint64_t address, const PDBSymbolFunc* function) const {
  const auto symbol = session_->findSymbolByAddress(address, PDB_SymType::PublicSymbol);
  const auto* exported = llvm::dyn_cast_or_null<PDBSymbolPublicSymbol>(symbol.get());
  if (exported != nullptr &&
      (function == nullptr || function->getVirtualAddress() == exported->getVirtualAddress()))
    return exported->getName();
  return function != nullptr ? function->getName() : std::string();
}

/// None where there is no checksum, or one of a kind that is not known.
std::string_view AlgorithmOf(PDB_Checksum kind) {
  switch (kind) {
    case PDB_Checksum::MD5:
      return kMd5;
    case PDB_Checksum::SHA1:
      return kSha1;
    case PDB_Checksum::SHA256:
      return kSha256;
    default:
      return {};
  }
}

/// Takes file and line of the first of `lines`, if there is one.
bool PdbReader::Place(std::unique_ptr<IPDBEnumLineNumbers> lines, SourceFrame& frame) const {
  const auto line = lines == nullptr ? nullptr : lines->getNext();
  if (line == nullptr) return false;
  frame.line = line->getLineNumber();
  if (const auto file = session_->getSourceFileById(line->getSourceFileId())) {
    frame.sourceFile = file->getFileName();
    frame.sourceFileChecksum =
        ChecksumText(AlgorithmOf(file->getChecksumType()), file->getChecksum());
  }
  return true;
}

std::optional<AddressChain> PdbReader::Find(std::uint64_t address) {
  AddressChain chain;
  const auto symbol = session_->findSymbolByAddress(address, PDB_SymType::Function);
  const auto* function = llvm::dyn_cast_or_null<PDBSymbolFunc>(symbol.get());
  const auto inlined = function == nullptr ? nullptr : function->findInlineFramesByVA(address);
  while (const auto site = inlined == nullptr ? nullptr : inlined->getNext()) {
    SourceFrame frame{.function = String(site->getName())};
    if (!Place(site->findInlineeLinesByVA(address, 1), frame)) break;
    chain.frames.push_back(std::move(frame));
  }
  const std::string name = FunctionName(address, function);
  std::string readable = Demangle(name);
  if (isDecorated_ && readable == name && !name.starts_with('?')) readable = Undecorated(name);
  SourceFrame outermost{.function = String(readable)};
  const auto length = static_cast<std::uint32_t>(function == nullptr ? 1 : function->getLength());
  (void)Place(session_->findLineNumbersByAddress(address, length), outermost);
  if (chain.frames.empty() && outermost == SourceFrame{}) return std::nullopt;
  chain.frames.push_back(std::move(outermost));
  return chain;
}

}  // namespace

Result<std::unique_ptr<AddressReader>> OpenPdb(const DebugFileFacts& facts) {
  auto buffer = MapFile(facts.pdbPath);
  if (!buffer) return buffer.GetError();
  std::unique_ptr<IPDBSession> session;
  if (llvm::Error error = NativeSession::createFromPdb(*std::move(buffer), session)) {
    return Error::File(
        kSource.Here(),
        Format("The debug file @ is damaged: @.", facts.pdbPath, TextOf(std::move(error))),
        Url::FromSystemPath(facts.pdbPath));
  }
  return std::unique_ptr<AddressReader>(std::make_unique<PdbReader>(
      std::move(session), facts.image.start, facts.architecture == "i386"));
}

}  // namespace tarvo::symbolreader
