#include "indexer/description.h"

#include <llvm/BinaryFormat/Dwarf.h>
#include <llvm/BinaryFormat/ELF.h>
#include <llvm/BinaryFormat/Magic.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/DWARF/DWARFDie.h>
#include <llvm/Object/COFF.h>
#include <llvm/Object/ELFObjectFile.h>
#include <llvm/Object/MachO.h>
#include <llvm/TargetParser/Triple.h>

#include <filesystem>
#include <string_view>

#include "files/debug_file_contents.h"
#include "files/pdb_identity.h"
#include "indexer/dwarf/companion_files.h"
#include "indexer/dwarf/debug_sections.h"
#include "indexer/dwarf/unit_entries.h"
#include "indexer/pdb/pdb_modules.h"
#include "indexer/writing/function_map.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

using namespace llvm::object;

class Description {
 public:
  void Add(std::string_view key, std::string_view value) {
    text_ += key;
    text_ += '=';
    text_ += value.substr(0, value.find('\0'));
    text_ += '\0';
  }
  [[nodiscard]] std::string Take() { return std::move(text_); }

 private:
  std::string text_;
};

std::string_view KindOf(const ELFObjectFileBase& object) {
  const auto* wide = llvm::dyn_cast<ELF64LEObjectFile>(&object);
  const auto hasInterpreter = [](const auto& file) {
    auto segments = file.program_headers();
    if (segments)
      return llvm::any_of(*segments,
                          [](const auto& s) { return s.p_type == llvm::ELF::PT_INTERP; });
    llvm::consumeError(segments.takeError());
    return false;
  };
  switch (object.getEType()) {
    case llvm::ELF::ET_EXEC:
      return "program";
    case llvm::ELF::ET_DYN:
      return wide != nullptr && hasInterpreter(wide->getELFFile()) ? "program" : "library";
    default:
      return "object";
  }
}

/// Of a dSYM the image tells: only programs keep the first page unmapped.
std::string_view KindOf(const MachOObjectFile& object) {
  switch (object.getHeader().filetype) {
    case llvm::MachO::MH_EXECUTE:
      return "program";
    case llvm::MachO::MH_DYLIB:
    case llvm::MachO::MH_BUNDLE:
      return "library";
    case llvm::MachO::MH_DSYM:
      break;
    default:
      return "object";
  }
  for (const auto& command : object.load_commands()) {
    if (command.C.cmd != llvm::MachO::LC_SEGMENT_64) continue;
    const auto segment = object.getSegment64LoadCommand(command);
    if (llvm::StringRef(segment.segname, 10) == "__PAGEZERO") return "program";
  }
  return "library";
}

std::string_view KindOf(const COFFObjectFile& object) {
  return (object.getCharacteristics() & llvm::COFF::IMAGE_FILE_DLL) != 0 ? "library" : "program";
}

void AddKind(const ObjectFile& object, Description& description) {
  if (const auto* elf = llvm::dyn_cast<ELFObjectFileBase>(&object)) {
    description.Add("format", "ELF");
    description.Add("platform", "linux");
    description.Add("kind", KindOf(*elf));
  } else if (const auto* machO = llvm::dyn_cast<MachOObjectFile>(&object)) {
    description.Add("format", "Mach-O");
    description.Add("platform", "macos");
    description.Add("kind", KindOf(*machO));
  } else if (const auto* coff = llvm::dyn_cast<COFFObjectFile>(&object)) {
    description.Add("format", "PE");
    description.Add("platform", "windows");
    description.Add("kind", KindOf(*coff));
  }
}

/// Architecture and id; a file without an id is told by none.
void AddIdentity(const ObjectFile& object, Description& description) {
  description.Add("architecture", llvm::Triple::getArchTypeName(object.getArch()).str());
  const std::string id = IdOf(object, {});
  description.Add("id", id.starts_with("hash") ? "" : id);
}

void AddContents(const ObjectFile& object, Description& description) {
  auto hasDwarf = HasDwarf(object);
  if (hasDwarf && *hasDwarf) description.Add("dwarf", "yes");
  if (!hasDwarf) llvm::consumeError(hasDwarf.takeError());
  if (object.symbol_begin() != object.symbol_end()) description.Add("symbols", "yes");
  if (const auto pdb = PdbReferenceIn(object)) description.Add("pdb", pdb->path);
}

/// The companions of a file with DWARF, and what is in it.
class DwarfDescription {
 public:
  DwarfDescription(const DebugFile& file, DescriptionDepth depth, Description& description)
      : file_(file), depth_(depth), description_(description) {}

  void Add() {
    AddSupplementary();
    const auto sections = DebugSections::Read(*file_.Inside().object, 1);
    if (!sections) return;
    llvm::DWARFContext& context = sections->Context();
    std::vector<llvm::DWARFUnit*> units;
    for (const auto& unit : context.compile_units()) units.push_back(unit.get());
    UnitDirectory directory(units, context.getDWARFObj().getAbbrevSection(),
                            supplementary_ == nullptr ? nullptr : supplementary_->units.get());
    for (llvm::DWARFUnit* unit : units) (void)unit->getUnitDIE();
    SplitUnits split(file_, Places());
    for (llvm::DWARFUnit* unit : units) AddUnit(*unit, directory, split);
    if (depth_ != DescriptionDepth::Contents) return;
    description_.Add("functions", std::to_string(functions_));
    description_.Add("inlined", std::to_string(inlined_));
    description_.Add("lines", std::to_string(lines_));
  }

 private:
  [[nodiscard]] CompanionPlaces Places() const {
    return depth_ == DescriptionDepth::Contents ? CompanionPlaces::Beside : CompanionPlaces::All;
  }

  void AddSupplementary() {
    const auto link = SupplementaryLinkIn(*file_.Inside().object);
    if (!link) return;
    description_.Add("shared", link->path.native());
    description_.Add("sharedid", link->id);
    supplementary_ = OpenSupplementary(file_, 1, Places());
    if (supplementary_ != nullptr)
      description_.Add("sharedfound", supplementary_->buffer->getBufferIdentifier().str());
  }

  void AddUnit(llvm::DWARFUnit& unit, UnitDirectory& directory, SplitUnits& split) {
    using namespace llvm::dwarf;
    const std::string name = AttributeText(unit, {DW_AT_dwo_name, DW_AT_GNU_dwo_name});
    const auto found = name.empty() ? std::nullopt : split.Find(unit);
    if (!name.empty() && unit.getDWOId()) {
      description_.Add("split", AttributeText(unit, {DW_AT_comp_dir}));
      description_.Add("splitname", name);
      if (found) description_.Add("splitfound", found->file->buffer->getBufferIdentifier().str());
    }
    if (depth_ == DescriptionDepth::Contents)
      Count(found ? found->directory->Open(*found->unit) : directory.Open(unit), unit);
  }

  void Count(const UnitEntries& entries, llvm::DWARFUnit& unit) {
    const UnitFunctions functions = ReadFunctions(entries);
    std::vector<bool> isCounted(functions.scopes.size());
    for (const FunctionInterval& interval : functions.intervals) {
      if (isCounted[interval.scope]) continue;
      isCounted[interval.scope] = true;
      ++(functions.scopes[interval.scope].caller == kNoScope ? functions_ : inlined_);
    }
    const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
    llvm::DWARFContext& context = unit.getContext();
    auto table = context.getLineTableForUnit(&unit, ignore);
    if (table && *table != nullptr) lines_ += (*table)->Rows.size();
    if (!table) llvm::consumeError(table.takeError());
    context.clearLineTableForUnit(&unit);
  }

  const DebugFile& file_;
  const DescriptionDepth depth_;
  Description& description_;
  std::unique_ptr<CompanionFile> supplementary_;
  std::uint64_t functions_ = 0;
  std::uint64_t inlined_ = 0;
  std::uint64_t lines_ = 0;
};

void DescribeUniversal(const MachOUniversalBinary& universal, Description& description) {
  bool isFirst = true;
  for (const auto& slice : universal.objects()) {
    auto object = slice.getAsObjectFile();
    if (!object) {
      llvm::consumeError(object.takeError());
      continue;
    }
    if (isFirst) {
      AddKind(**object, description);
      AddContents(**object, description);
    }
    isFirst = false;
    AddIdentity(**object, description);
  }
}

void CountInto(const std::string& pdb, DescriptionDepth depth, Description& description) {
  if (depth != DescriptionDepth::Contents) return;
  const auto counts = CountPdb(pdb);
  if (!counts) return;
  description.Add("functions", std::to_string(counts->functions));
  description.Add("inlined", std::to_string(counts->inlined));
  description.Add("lines", std::to_string(counts->lines));
}

/// The PDB of a PE file, where it is the right one.
void AddPdb(const DebugFileFacts& facts, DescriptionDepth depth, Description& description) {
  const auto buffer = MapFile(facts.pdbPath);
  const auto identity = buffer ? ReadPdbIdentity((*buffer)->getBuffer()) : std::nullopt;
  if (!identity || identity->id != facts.id) return;
  description.Add("pdbfound", facts.pdbPath);
  CountInto(facts.pdbPath, depth, description);
}

Error NoDebugFile(const std::string& path) {
  return Error::File(kSource.Here(),
                     Format("@ is no debug file: found another kind of file or a damaged one, "
                            "expected ELF, Mach-O, PE or PDB.",
                            path),
                     Url::FromSystemPath(path));
}

Result<std::string> DescribePdb(const std::string& path, std::string_view bytes,
                                DescriptionDepth depth) {
  const auto identity = ReadPdbIdentity(bytes);
  if (!identity) return NoDebugFile(path);
  Description description;
  description.Add("format", "PDB");
  description.Add("platform", "windows");
  description.Add("kind", "debug");
  description.Add("architecture", identity->architecture);
  description.Add("id", identity->id);
  CountInto(path, depth, description);
  return description.Take();
}

}  // namespace

Result<std::string> Describe(const std::string& path, DescriptionDepth depth) {
  const auto buffer = MapFile(path);
  if (!buffer) return buffer.GetError();
  const llvm::StringRef bytes = (*buffer)->getBuffer();
  const llvm::file_magic magic = llvm::identify_magic(bytes);
  if (magic == llvm::file_magic::pdb) return DescribePdb(path, bytes, depth);
  Description description;
  if (magic == llvm::file_magic::macho_universal_binary) {
    auto universal = MachOUniversalBinary::create((*buffer)->getMemBufferRef());
    if (universal) DescribeUniversal(**universal, description);
    if (!universal) llvm::consumeError(universal.takeError());
    std::string text = description.Take();
    return text.empty() ? Result<std::string>(NoDebugFile(path)) : std::move(text);
  }
  const auto object = ObjectIn(**buffer);
  if (object == nullptr) return NoDebugFile(path);
  AddKind(*object, description);
  AddIdentity(*object, description);
  AddContents(*object, description);
  const auto file = OpenDebugFile(path, {.takesSymbolTable = true});
  if (!file) return description.Take();
  if ((*file)->Facts().pdbPath.empty())
    DwarfDescription(**file, depth, description).Add();
  else
    AddPdb((*file)->Facts(), depth, description);
  return description.Take();
}

}  // namespace tarvo::symbolreader
