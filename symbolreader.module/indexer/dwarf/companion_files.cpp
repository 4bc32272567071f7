#include "indexer/dwarf/companion_files.h"

#include <llvm/ADT/StringExtras.h>
#include <llvm/BinaryFormat/Dwarf.h>
#include <llvm/DebugInfo/DWARF/DWARFCompileUnit.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/DWARF/DWARFDie.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <span>
#include <string_view>
#include <system_error>

#include "files/debug_file_contents.h"
#include "indexer/dwarf/byte_cursor.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

using llvm::object::ObjectFile;

constexpr std::string_view kBuildIdDirectory = "/usr/lib/debug/.build-id";

std::string_view SectionNamed(const ObjectFile& object, std::string_view wanted) {
  for (const llvm::object::SectionRef& section : object.sections()) {
    auto name = section.getName();
    auto contents = section.getContents();
    if (name && contents && std::string_view(*name) == wanted) return std::string_view(*contents);
    llvm::consumeError(name.takeError());
    llvm::consumeError(contents.takeError());
  }
  return {};
}

/// The build id in its section: a supplementary file is no image, and has no segments to find it
/// by.
std::string_view BuildIdIn(const ObjectFile& object) {
  const std::string_view note = SectionNamed(object, ".note.gnu.build-id");
  ByteCursor cursor(note, 0);
  const std::uint64_t nameSize = cursor.Read(4);
  const std::uint64_t idSize = cursor.Read(4);
  cursor.Skip(4);
  cursor.Skip((nameSize + 3) & ~std::uint64_t{3});
  const std::uint64_t offset = cursor.Offset();
  cursor.Skip(idSize);
  return cursor.HasFailed() ? std::string_view() : note.substr(offset, idSize);
}

/// The id that a supplementary file carries: its build id or, by DWARF 5, the checksum in its own
/// .debug_sup.
bool HasId(const ObjectFile& object, const std::string& id) {
  if (llvm::toHex(BuildIdIn(object), /*LowerCase=*/true) == id) return true;
  const std::string_view bytes = SectionNamed(object, ".debug_sup");
  ByteCursor cursor(bytes, 0);
  cursor.Skip(3);
  (void)cursor.ReadText();
  const std::uint64_t size = cursor.ReadLeb();
  return !cursor.HasFailed() && size <= bytes.size() - cursor.Offset() &&
         llvm::toHex(bytes.substr(cursor.Offset(), size), /*LowerCase=*/true) == id;
}

/// A path that stays in the directory it counts from.
bool IsInside(const fs::path& path) {
  return path.is_relative() &&
         std::ranges::none_of(path, [](const fs::path& part) { return part == ".."; });
}

/// Opens a file with its debug sections. Null where that fails.
std::unique_ptr<CompanionFile> Open(const fs::path& path, DebugSections::Kind kind,
                                    unsigned threads) {
  auto buffer = MapFile(path.native());
  if (!buffer) return nullptr;
  auto object = ObjectIn(**buffer);
  if (object == nullptr || !object->isLittleEndian()) return nullptr;
  auto sections = DebugSections::Read(*object, threads, kind);
  if (!sections) return nullptr;
  auto file = std::make_unique<CompanionFile>();
  file->buffer = *std::move(buffer);
  file->object = std::move(object);
  file->sections = std::make_unique<DebugSections>(*std::move(sections));
  return file;
}

template <typename Units>
std::vector<llvm::DWARFUnit*> ListOf(Units&& units) {
  std::vector<llvm::DWARFUnit*> list;
  for (const auto& unit : units) list.push_back(unit.get());
  return list;
}

std::shared_ptr<CompanionFile> OpenSplit(const fs::path& path) {
  std::shared_ptr<CompanionFile> file = Open(path, DebugSections::Kind::Split, 1);
  if (file == nullptr) return nullptr;
  llvm::DWARFContext& context = file->sections->Context();
  file->units = std::make_unique<UnitDirectory>(ListOf(context.dwo_compile_units()),
                                                context.getDWARFObj().getAbbrevDWOSection());
  return file;
}

/// The unit `id` of an open file, connected with its skeleton.
std::optional<SplitUnits::Found> FindIn(const std::shared_ptr<CompanionFile>& file,
                                        llvm::DWARFUnit& skeleton, std::uint64_t id) {
  if (file == nullptr) return std::nullopt;
  llvm::DWARFUnit* unit = file->sections->Context().getDWOCompileUnitForHash(id);
  if (unit == nullptr || unit->getVersion() != skeleton.getVersion()) return std::nullopt;
  const llvm::DWARFObject& object = skeleton.getContext().getDWARFObj();
  unit->setSkeletonUnit(&skeleton);
  if (const auto base = skeleton.getAddrOffsetSectionBase())
    unit->setAddrOffsetSection(&object.getAddrSection(), *base);
  constexpr int kLastOfSharedRanges = 4;
  if (skeleton.getVersion() <= kLastOfSharedRanges) {
    const auto base = skeleton.getUnitDIE().find(llvm::dwarf::DW_AT_GNU_ranges_base);
    unit->setRangesSection(&object.getRangesSection(), llvm::dwarf::toSectionOffset(base, 0));
  }
  if (!unit->getUnitDIE()) return std::nullopt;
  return SplitUnits::Found{unit, file->units.get(), file};
}

}  // namespace

std::string AttributeText(llvm::DWARFUnit& unit,
                          std::initializer_list<llvm::dwarf::Attribute> names) {
  return llvm::dwarf::toString(unit.getUnitDIE().find(names), "");
}

std::optional<SupplementaryLink> SupplementaryLinkIn(const ObjectFile& object) {
  std::string_view bytes = SectionNamed(object, ".gnu_debugaltlink");
  std::size_t size = 0;
  ByteCursor cursor(bytes, 0);
  std::string_view path;
  if (!bytes.empty()) {
    path = cursor.ReadText();
    size = bytes.size() - cursor.Offset();
  } else {
    // Version, whether this is the supplementary file itself, its name, a checksum.
    bytes = SectionNamed(object, ".debug_sup");
    cursor = ByteCursor(bytes, 0);
    const bool isLink = cursor.Read(2) == 5 && cursor.Read(1) == 0;
    path = cursor.ReadText();
    size = cursor.ReadLeb();
    if (!isLink) return std::nullopt;
  }
  if (cursor.HasFailed() || path.empty() || size == 0) return std::nullopt;
  const std::uint64_t offset = cursor.Offset();
  cursor.Skip(size);
  if (cursor.HasFailed()) return std::nullopt;
  return SupplementaryLink{path, llvm::toHex(bytes.substr(offset, size), /*LowerCase=*/true)};
}

std::vector<std::string> SupplementaryPlaces(const ObjectFile& object) {
  const auto link = SupplementaryLinkIn(object);
  constexpr std::size_t kShortestId = 4;
  if (!link || link->id.size() < kShortestId) return {};
  return {link->path, link->path.filename(),
          fs::path(kBuildIdDirectory) / link->id.substr(0, 2) / (link->id.substr(2) + ".debug")};
}

std::unique_ptr<CompanionFile> OpenSupplementary(const DebugFile& file, unsigned threads,
                                                 CompanionPlaces places) {
  const ObjectFile& object = *file.Inside().object;
  const fs::path directory = fs::path(file.Facts().path).parent_path();
  for (const std::string& place : SupplementaryPlaces(object)) {
    if (places == CompanionPlaces::Beside && !IsInside(place)) continue;
    auto found = Open(directory / place, DebugSections::Kind::Whole, threads);
    if (found == nullptr || !HasId(*found->object, SupplementaryLinkIn(object)->id)) continue;
    llvm::DWARFContext& context = found->sections->Context();
    const llvm::DWARFObject& sections = context.getDWARFObj();
    found->units = std::make_unique<UnitDirectory>(ListOf(context.compile_units()),
                                                   sections.getAbbrevSection(), nullptr,
                                                   sections.getStrSection());
    for (llvm::DWARFUnit* unit : found->units->Units()) (void)unit->getUnitDIE();
    return found;
  }
  return nullptr;
}

std::shared_ptr<CompanionFile> SplitUnits::Package() {
  if (isPackageKnown_) return package_;
  isPackageKnown_ = true;
  for (const std::string& place : PackagesBeside(path_))
    if (package_ == nullptr) package_ = OpenSplit(place);
  return package_;
}

std::optional<SplitUnits::Found> SplitUnits::Find(llvm::DWARFUnit& skeleton) {
  using namespace llvm::dwarf;
  const fs::path name = AttributeText(skeleton, {DW_AT_dwo_name, DW_AT_GNU_dwo_name});
  const auto id = name.empty() ? std::nullopt : skeleton.getDWOId();
  if (!id) return std::nullopt;
  // A directory of no fixed place counts from the one that this process was started in.
  std::error_code ignored;
  const fs::path compiled =
      fs::absolute(fs::path(AttributeText(skeleton, {DW_AT_comp_dir})) / name, ignored);
  const std::array<std::string, 4> places = {std::string(kPackages), compiled, name,
                                             name.filename()};
  // What comes while it is being looked for counts as having come.
  const std::vector<MissingFile> before = LookAt(places, path_);
  if (onLook_) onLook_(before);
  {
    const std::scoped_lock lock(mutex_);
    if (auto found = FindIn(Package(), skeleton, *id)) return found;
  }
  const fs::path directory = fs::path(path_).parent_path();
  for (const fs::path place : std::span(places).subspan(1)) {
    if (places_ == CompanionPlaces::Beside && !IsInside(place)) continue;
    if (auto found = FindIn(OpenSplit(directory / place), skeleton, *id)) return found;
  }
  const std::scoped_lock lock(mutex_);
  missing_.insert(before.begin(), before.end());
  while (missing_.size() > kMostMissingFiles) missing_.erase(std::prev(missing_.end()));
  return std::nullopt;
}

}  // namespace tarvo::symbolreader
