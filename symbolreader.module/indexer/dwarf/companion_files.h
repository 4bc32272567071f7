#pragma once

#include <llvm/DebugInfo/DWARF/DWARFUnit.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Support/MemoryBuffer.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "files/debug_file.h"
#include "index/missing_files.h"
#include "indexer/dwarf/debug_sections.h"
#include "indexer/dwarf/unit_entries.h"

/// Files beside the debug file that hold parts of its debug information. Where one cannot be found,
/// or is of another build, what it would tell is missing from the answers.
///
/// The paths are the debug file's choice; only regular files are opened, and only one that carries
/// the expected id is used.
namespace tarvo::symbolreader {

/// A file beside, open.
struct CompanionFile {
  std::unique_ptr<llvm::MemoryBuffer> buffer;
  std::unique_ptr<llvm::object::ObjectFile> object;
  std::unique_ptr<DebugSections> sections;
  std::unique_ptr<UnitDirectory> units;
};

/// Where files beside are looked for.
enum class CompanionPlaces {
  All,     ///< also where they were when the debug file was made, and below /usr/lib/debug
  Beside,  ///< in the debug file's directory and below alone
};

/// What a file says of its supplementary one.
struct SupplementaryLink {
  std::filesystem::path path;
  std::string id;  ///< in hexadecimal
};
/// Nothing where the file names none.
[[nodiscard]] std::optional<SupplementaryLink> SupplementaryLinkIn(
    const llvm::object::ObjectFile& object);

/// The places where the supplementary file is looked for, as in MissingFile; none where the file
/// names none.
[[nodiscard]] std::vector<std::string> SupplementaryPlaces(const llvm::object::ObjectFile& object);

/// The file with what several debug files share (dwz: .gnu_debugaltlink; DWARF 5: .debug_sup), its
/// first entries extracted. Looked for under the path that the file gives, from its own directory
/// where it is relative, then below /usr/lib/debug by build id. Null where the file names none, or
/// it is not there.
[[nodiscard]] std::unique_ptr<CompanionFile> OpenSupplementary(
    const DebugFile& file, unsigned threads, CompanionPlaces places = CompanionPlaces::All);

/// The first of these attributes that the unit's first entry, which is extracted, has as a text.
[[nodiscard]] std::string AttributeText(llvm::DWARFUnit& unit,
                                        std::initializer_list<llvm::dwarf::Attribute> names);

/// The parts of split debug information: of each unit the .dwo file, or all in one .dwp. Any thread
/// may ask.
class SplitUnits {
 public:
  /// Told of the places of each part before they are looked at, by the thread that asks for it.
  using OnLook = std::function<void(std::span<const MissingFile> files)>;

  explicit SplitUnits(const DebugFile& file, CompanionPlaces places = CompanionPlaces::All,
                      OnLook onLook = {})
      : path_(file.Facts().path), places_(places), onLook_(std::move(onLook)) {}

  /// The unit that `skeleton`, whose first entry is extracted, stands for. Nothing where it stands
  /// for none, or that is not there. A .dwo is looked for under its path, then beside the debug
  /// file; before either, a .dwp beside the debug file.
  struct Found {
    llvm::DWARFUnit* unit = nullptr;
    UnitDirectory* directory = nullptr;
    std::shared_ptr<CompanionFile> file;  ///< keeps both
  };
  [[nodiscard]] std::optional<Found> Find(llvm::DWARFUnit& skeleton);

  /// The places where a part was missed, as they were then; the first kMostMissingFiles.
  [[nodiscard]] std::set<MissingFile> Missing() const {
    const std::scoped_lock lock(mutex_);
    return missing_;
  }

 private:
  [[nodiscard]] std::shared_ptr<CompanionFile> Package();

  std::string path_;
  CompanionPlaces places_;
  OnLook onLook_;
  /// Guards what follows; the package's units are parsed when they are asked for.
  mutable std::mutex mutex_;
  bool isPackageKnown_ = false;
  std::shared_ptr<CompanionFile> package_;
  std::set<MissingFile> missing_;
};

}  // namespace tarvo::symbolreader
