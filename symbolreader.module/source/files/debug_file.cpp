#include "files/debug_file.h"

#include <fcntl.h>
#include <llvm/ADT/STLExtras.h>
#include <llvm/ADT/StringExtras.h>
#include <llvm/BinaryFormat/MachO.h>
#include <llvm/BinaryFormat/Magic.h>
#include <llvm/Object/COFF.h>
#include <llvm/Object/ELFObjectFile.h>
#include <llvm/Object/Error.h>
#include <llvm/Object/MachO.h>
#include <llvm/Support/Endian.h>
#include <llvm/TargetParser/Triple.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <system_error>

#include "files/debug_file_contents.h"
#include "files/pdb_identity.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

using llvm::object::MachOUniversalBinary;
using llvm::object::ObjectFile;

Error FileError(SourceLocation where, const std::string& path, const String& text) {
  return Error::File(where, text, Url::FromSystemPath(path));
}

Error Damaged(SourceLocation where, const std::string& path, llvm::Error error) {
  return FileError(where, path,
                   Format("The debug file @ is damaged: @; expected a whole file.", path,
                          TextOf(std::move(error))));
}

llvm::Triple::ArchType ArchitectureOf(std::string_view name) {
  return llvm::Triple(llvm::StringRef(name).lower() + "-unknown-unknown").getArch();
}

std::string NameOf(llvm::Triple::ArchType architecture) {
  return llvm::Triple::getArchTypeName(architecture).str();
}

/// Whether a Mach-O file's load commands lie in it: LLVM makes room for as many as the header says
/// (llvm/Object/MachO.h, createMachOObjectFile). `bytes` start with a Mach-O magic number.
bool HoldsLoadCommands(llvm::StringRef bytes) {
  using llvm::support::endian::read32;
  constexpr std::uint64_t kSmallestCommand = 8;
  if (bytes.size() < sizeof(llvm::MachO::mach_header)) return false;
  const bool isBig = bytes[0] == '\xFE';
  const auto order = isBig ? llvm::endianness::big : llvm::endianness::little;
  const auto field = [&](std::size_t place) -> std::uint64_t {
    return read32(bytes.data() + place, order);
  };
  const std::uint64_t size = field(offsetof(llvm::MachO::mach_header, sizeofcmds));
  return size <= bytes.size() &&
         field(offsetof(llvm::MachO::mach_header, ncmds)) <= size / kSmallestCommand;
}

llvm::Error TooManyCommands() {
  return llvm::createStringError("it does not hold the load commands that its header tells of");
}

/// The slice for `architecture`: the one of that very name, else another variant of it (x86_64h,
/// arm64e).
Result<std::unique_ptr<ObjectFile>> Slice(const std::string& path,
                                          const MachOUniversalBinary& universal,
                                          std::string_view architecture) {
  const auto wanted = ArchitectureOf(architecture);
  const std::string exactName = llvm::StringRef(architecture).lower();
  const bool isOnly = architecture.empty() && universal.getNumberOfObjects() == 1;
  std::optional<MachOUniversalBinary::ObjectForArch> found;
  std::string names;
  for (const auto& slice : universal.objects()) {
    const std::string name = slice.getArchFlagName();
    names += (names.empty() ? "" : ", ") + name;
    if (name == exactName || (!found && (isOnly || ArchitectureOf(name) == wanted))) found = slice;
  }
  if (!found) {
    return FileError(
        kSource.Here(), path,
        Format("The debug file @ is for other architectures: found @, expected @.", path, names,
               architecture.empty() ? "one, or to be told which" : architecture));
  }
  const llvm::StringRef bytes = universal.getData().substr(found->getOffset(), found->getSize());
  if (!HoldsLoadCommands(bytes)) return Damaged(kSource.Here(), path, TooManyCommands());
  auto object = found->getAsObjectFile();
  if (!object) return Damaged(kSource.Here(), path, object.takeError());
  return std::unique_ptr<ObjectFile>(std::move(*object));
}

bool IsUniversal(llvm::StringRef bytes) {
  return llvm::identify_magic(bytes) == llvm::file_magic::macho_universal_binary;
}

/// Null for other kinds of file. LLVM's function for all kinds would bring its bitcode reader and
/// much else into the module.
llvm::Expected<std::unique_ptr<ObjectFile>> CreateObject(llvm::MemoryBufferRef bytes) {
  const llvm::file_magic magic = llvm::identify_magic(bytes.getBuffer());
  if (magic >= llvm::file_magic::elf && magic <= llvm::file_magic::elf_core)
    return ObjectFile::createELFObjectFile(bytes);
  if (magic >= llvm::file_magic::macho_object && magic <= llvm::file_magic::macho_file_set) {
    if (!HoldsLoadCommands(bytes.getBuffer())) return TooManyCommands();
    return ObjectFile::createMachOObjectFile(bytes);
  }
  if (magic == llvm::file_magic::pecoff_executable) return ObjectFile::createCOFFObjectFile(bytes);
  return nullptr;
}

/// Opens the object inside the mapped file.
Result<void> OpenObject(const std::string& path, std::string_view architecture,
                        DebugFile::Contents& contents) {
  if (!IsUniversal(contents.buffer->getBuffer())) {
    auto object = CreateObject(*contents.buffer);
    if (!object) return Damaged(kSource.Here(), path, object.takeError());
    contents.object = std::move(*object);
    if (contents.object != nullptr) return {};
    return FileError(kSource.Here(), path,
                     Format("@ is no debug file: found another kind of file, expected Mach-O, "
                            "ELF, PE or PDB.",
                            path));
  }
  auto universal = MachOUniversalBinary::create(*contents.buffer);
  if (!universal) return Damaged(kSource.Here(), path, universal.takeError());
  contents.universal = std::move(*universal);
  auto slice = Slice(path, *contents.universal, architecture);
  if (!slice) return slice.GetError();
  contents.object = *std::move(slice);
  return {};
}

/// The PDB that a PE file names, in the PE file's own directory. Empty when it names none.
std::string PdbPathFor(const std::string& path, const ObjectFile& object) {
  const auto pdb = PdbReferenceIn(object);
  if (!pdb) return {};
  const std::string name = pdb->path.substr(pdb->path.find_last_of("/\\") + 1);
  return name.empty() ? std::string() : path.substr(0, path.rfind('/') + 1) + name;
}

/// Whether `symbol` is a function that is in the file; nothing when it cannot be read.
std::optional<bool> IsFunction(const llvm::object::SymbolRef& symbol) {
  auto type = symbol.getType();
  auto flags = symbol.getFlags();
  const bool isReadable = type && flags;
  if (!type) llvm::consumeError(type.takeError());
  if (!flags) llvm::consumeError(flags.takeError());
  if (!isReadable) return std::nullopt;
  return *type == llvm::object::SymbolRef::ST_Function &&
         (*flags & llvm::object::SymbolRef::SF_Undefined) == 0;
}

/// Goes no further than what can be read: a header may tell of any number of symbols, and what is
/// behind the file's end would be tried one by one.
bool NamesFunctions(const auto& symbols) {
  for (const llvm::object::SymbolRef& symbol : symbols) {
    const std::optional<bool> isFunction = IsFunction(symbol);
    if (!isFunction || *isFunction) return isFunction.has_value();
  }
  return false;
}

/// Whether a symbol table names a function that is in the file.
bool HasFunctionNames(const ObjectFile& object) {
  if (NamesFunctions(object.symbols())) return true;
  const auto* elf = llvm::dyn_cast<llvm::object::ELFObjectFileBase>(&object);
  return elf != nullptr && NamesFunctions(elf->getDynamicSymbolIterators());
}

/// An error when a file's format is not that of the platform that is asked for.
Result<void> CheckPlatform(const std::string& path, std::string_view format,
                           std::string_view platform, std::string_view expected) {
  if (expected.empty() || platform == expected) return {};
  return Error::IllegalArgument(
      kSource.Here(), Format("The debug file @ is for another system: found @, for @, expected one "
                             "for @.",
                             path, format, platform, expected));
}

Result<void> CheckPlatform(const std::string& path, const ObjectFile& object,
                           std::string_view expected) {
  if (object.isELF()) return CheckPlatform(path, "ELF", "linux", expected);
  if (object.isMachO()) return CheckPlatform(path, "Mach-O", "macos", expected);
  return CheckPlatform(path, "PE", "windows", expected);
}

Result<DebugFileFacts> FactsOf(const std::string& path, const DebugFile::Contents& contents,
                               const DebugFileRequest& request) {
  const ObjectFile& object = *contents.object;
  if (auto fits = CheckPlatform(path, object, request.platform); !fits) return fits.GetError();
  if (auto fits = CheckArchitecture(path, NameOf(object.getArch()), request.architecture); !fits)
    return fits.GetError();
  const auto image = ImageRangeOf(object);
  if (!image) {
    return FileError(kSource.Here(), path,
                     Format("The debug file @ is no linked image: found no segments to load, "
                            "expected some.",
                            path));
  }
  DebugFileFacts facts{.path = path,
                       .format = object.isELF()     ? ImageFormat::Elf
                                 : object.isMachO() ? ImageFormat::MachO
                                                    : ImageFormat::Pe,
                       .image = *image,
                       .architecture = NameOf(object.getArch())};
  auto hasDwarf = HasDwarf(object);
  if (!hasDwarf) return Damaged(kSource.Here(), path, hasDwarf.takeError());
  if (!*hasDwarf) facts.pdbPath = PdbPathFor(path, object);
  facts.id = IdOf(object, contents.buffer->getBuffer());
  if (auto fits = CheckId(path, facts.id, request.id); !fits) return fits.GetError();
  if (!*hasDwarf && facts.pdbPath.empty() &&
      !(request.takesSymbolTable && HasFunctionNames(object))) {
    return FileError(kSource.Here(), path,
                     Format("The debug file @ holds no debug information: found none, expected "
                            "DWARF sections or a PDB.",
                            path));
  }
  return facts;
}

/// A PDB whose identity cannot be read is left to its reader, which says why.
Result<DebugFileFacts> FactsOfPdb(const std::string& path, const DebugFile::Contents& contents,
                                  const DebugFileRequest& request) {
  DebugFileFacts facts{.path = path, .format = ImageFormat::Pe, .pdbPath = path};
  if (auto fits = CheckPlatform(path, "a PDB", "windows", request.platform); !fits)
    return fits.GetError();
  const auto identity = ReadPdbIdentity(contents.buffer->getBuffer());
  if (!identity) return facts;
  facts.id = identity->id;
  facts.architecture = identity->architecture;
  if (auto fits = CheckArchitecture(path, facts.architecture, request.architecture); !fits)
    return fits.GetError();
  if (auto fits = CheckId(path, facts.id, request.id); !fits) return fits.GetError();
  return facts;
}

}  // namespace

std::string TextOf(llvm::Error error) { return llvm::toString(std::move(error)); }

Result<std::unique_ptr<llvm::MemoryBuffer>> MapFile(const std::string& path) {
  const auto failed = [&](int reason) {
    return FileError(kSource.Here(), path,
                     Format("Could not open the debug file @: @.", path,
                            std::generic_category().message(reason)));
  };
  // Without O_NONBLOCK a named pipe would wait for its writer.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return failed(errno);
  struct stat status{};
  const bool isFile = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  auto buffer = isFile ? llvm::MemoryBuffer::getOpenFile(descriptor, path,
                                                         static_cast<std::uint64_t>(status.st_size),
                                                         /*RequiresNullTerminator=*/false)
                       : std::error_code(EINVAL, std::generic_category());
  close(descriptor);
  if (!buffer) return failed(buffer.getError().value());
  return std::move(*buffer);
}

std::unique_ptr<ObjectFile> ObjectIn(const llvm::MemoryBuffer& buffer) {
  auto object = CreateObject(buffer.getMemBufferRef());
  if (object) return std::move(*object);
  llvm::consumeError(object.takeError());
  return nullptr;
}

Result<void> CheckArchitecture(const std::string& path, const std::string& found,
                               std::string_view architecture) {
  if (architecture.empty() || found == NameOf(ArchitectureOf(architecture))) return {};
  return Error::IllegalArgument(
      kSource.Here(), Format("The debug file @ is for another architecture: found @, expected @.",
                             path, found, architecture));
}

Result<void> CheckId(const std::string& path, const std::string& found,
                     const std::string& expected) {
  if (expected.empty() || found == expected) return {};
  return Error::IllegalArgument(
      kSource.Here(), Format("The debug file @ is of another build: found the id @, expected @.",
                             path, found, expected));
}

DebugFile::DebugFile(DebugFileFacts facts, std::unique_ptr<Contents> contents)
    : facts_(std::move(facts)), contents_(std::move(contents)) {}
DebugFile::~DebugFile() = default;

Result<std::shared_ptr<const DebugFile>> OpenDebugFile(const std::string& path,
                                                       const DebugFileRequest& request) {
  const std::string& architecture = request.architecture;
  if (!architecture.empty() && ArchitectureOf(architecture) == llvm::Triple::UnknownArch) {
    return Error::IllegalArgument(
        kSource.Here(), Format("The architecture \"@\" is not known; expected one like x86_64 or "
                               "arm64.",
                               architecture));
  }
  auto buffer = MapFile(path);
  if (!buffer) return buffer.GetError();
  auto contents = std::make_unique<DebugFile::Contents>();
  contents->buffer = *std::move(buffer);
  const bool isPdb = llvm::identify_magic(contents->buffer->getBuffer()) == llvm::file_magic::pdb;
  if (!isPdb) {
    if (auto opened = OpenObject(path, architecture, *contents); !opened) return opened.GetError();
  }
  auto facts = isPdb ? FactsOfPdb(path, *contents, request) : FactsOf(path, *contents, request);
  if (!facts) return facts.GetError();
  return std::shared_ptr<const DebugFile>(
      std::make_shared<DebugFile>(*std::move(facts), std::move(contents)));
}

}  // namespace tarvo::symbolreader
