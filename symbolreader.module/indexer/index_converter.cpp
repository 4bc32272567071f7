#include "indexer/index_converter.h"

#include <llvm/DebugInfo/DWARF/DWARFContext.h>

#include <atomic>
#include <functional>
#include <thread>
#include <unordered_map>

#include "files/debug_file_contents.h"
#include "indexer/unit_converter.h"

namespace tarvo::symbolreader {
namespace {

/// Calls `work(i)` for all i below `count`, in any order.
void InParallel(unsigned threads, std::size_t count, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next{0};
  const auto run = [&] {
    for (std::size_t i; (i = next.fetch_add(1)) < count;) work(i);
  };
  std::vector<std::jthread> others;
  for (unsigned i = 1; i < threads; ++i) others.emplace_back(run);
  run();
}

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

/// Extracts the entries of all units. Afterwards they are only read: entries refer to those of
/// other units, which a context that is asked for one would extract at that moment, in whichever
/// thread that is.
void ExtractEntries(llvm::DWARFContext& context, unsigned threads) {
  std::vector<llvm::DWARFUnit*> units;
  for (const auto& unit : context.compile_units()) {
    unit->getAbbreviations();  // shared by units, so not for several threads
    units.push_back(unit.get());
  }
  InParallel(threads, units.size(),
             [&](std::size_t i) { (void)units[i]->getUnitDIE(/*ExtractUnitDIEOnly=*/false); });
}

}  // namespace

Result<llvm::SmallVector<char, 0>> ConvertToIndex(const DebugFile& file, const std::string& key,
                                                  unsigned threads) {
  const llvm::object::ObjectFile& object = *file.Inside().object;
  const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
  const auto context = llvm::DWARFContext::create(
      object, llvm::DWARFContext::ProcessDebugRelocations::Process, nullptr, "", ignore, ignore);
  ExtractEntries(*context, threads);
  const auto symbols = ReadSymbols(object);
  const auto shares = ShareOut(DivideText(*context, ReadTextSections(object)));
  IndexWriter writer;
  InParallel(threads, shares.size(), [&](std::size_t i) {
    UnitConverter converter(symbols, writer);
    if (shares[i].unit == nullptr)
      converter.Convert(shares[i].runs);
    else
      converter.Convert(*context, *shares[i].unit, shares[i].runs);
  });
  return writer.Finish(key, file.Facts().id);
}

}  // namespace tarvo::symbolreader
