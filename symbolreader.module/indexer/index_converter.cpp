#include "indexer/index_converter.h"

#include <llvm/DebugInfo/DWARF/DWARFContext.h>

#include <set>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "files/debug_file_contents.h"
#include "indexer/dwarf/companion_files.h"
#include "indexer/dwarf/debug_sections.h"
#include "indexer/dwarf/unit_converter.h"
#include "indexer/in_parallel.h"
#include "indexer/looked_at_files.h"
#include "indexer/progress_report.h"
#include "indexer/writing/index_writer.h"
#include "source.h"

namespace tarvo::symbolreader {
namespace {

/// The runs of one unit, or of none.
struct Share {
  llvm::DWARFUnit* unit = nullptr;
  std::vector<TextRun> runs;
};

std::vector<Share> ShareOut(const std::vector<TextRun>& runs) {
  std::vector<Share> shares;
  std::unordered_map<const llvm::DWARFUnit*, std::size_t> places;
  for (const TextRun& run : runs) {
    const auto [place, isNew] = places.try_emplace(run.unit, shares.size());
    if (isNew) shares.push_back({run.unit, {}});
    shares[place->second].runs.push_back(run);
  }
  return shares;
}

/// Extracts the first entry of each unit, by the one thread that there is yet: others then read it
/// where a name leads from unit to unit.
void ExtractFirstEntries(const UnitDirectory& directory) {
  for (llvm::DWARFUnit* unit : directory.Units()) (void)unit->getUnitDIE();
}

llvm::StringRef BytesOf(const llvm::DWARFUnit& unit) {
  return unit.getInfoSection().Data.slice(unit.getOffset(), unit.getNextUnitOffset());
}

std::uint64_t BytesOf(const UnitDirectory& directory) {
  std::uint64_t bytes = 0;
  for (const llvm::DWARFUnit* unit : directory.Units()) bytes += BytesOf(*unit).size();
  return bytes;
}

}  // namespace

Result<void> ConvertToIndex(const DebugFile& file, const std::string& key,
                            const std::string& output, unsigned threads) {
  const llvm::object::ObjectFile& object = *file.Inside().object;
  if (!object.isLittleEndian())
    return Error::IllegalState(kSource.Here(), "There is no index for a big-endian file.");
  IndexWriter writer;
  if (auto created = writer.Create(output); !created) return created;
  const auto sections = DebugSections::Read(object, threads);
  if (!sections) return sections.GetError();
  llvm::DWARFContext& context = sections->Context();
  LookedAtFiles lookedAt;
  const auto shared = LookAt(SupplementaryPlaces(object), file.Facts().path);
  lookedAt.Add(shared);
  const auto supplementary = OpenSupplementary(file, threads);
  std::vector<llvm::DWARFUnit*> units;
  for (const auto& unit : context.compile_units()) units.push_back(unit.get());
  UnitDirectory directory(std::move(units), context.getDWARFObj().getAbbrevSection(),
                          supplementary == nullptr ? nullptr : supplementary->units.get());
  ExtractFirstEntries(directory);
  SplitUnits split(file, CompanionPlaces::All,
                   [&](std::span<const MissingFile> files) { lookedAt.Add(files); });
  const auto symbols = ReadSymbols(object);
  ProgressReport progress(BytesOf(directory));
  const auto shares = ShareOut(DivideText(context, ReadTextSections(object)));
  InParallel(threads, shares.size(), [&](std::size_t i) {
    llvm::DWARFUnit* unit = shares[i].unit;
    if (unit == nullptr) return writer.Add(i, UnitConverter(symbols, true).Convert(shares[i].runs));
    const UnitEntries entries = directory.Open(*unit);
    const auto parts = split.Find(*unit);
    const UnitEntries functions = parts ? parts->directory->Open(*parts->unit) : entries;
    UnitConverter converter(symbols, /*namesLast=*/!parts);
    writer.Add(i, converter.Convert(context, entries, functions, shares[i].runs));
    sections->LetGo(BytesOf(*unit));
    progress.Add(BytesOf(*unit).size());
  });
  std::set<MissingFile> missing = split.Missing();
  if (supplementary == nullptr) missing.insert(shared.begin(), shared.end());
  writer.SetMissing(std::move(missing));
  return writer.Finish(key, threads);
}

}  // namespace tarvo::symbolreader
