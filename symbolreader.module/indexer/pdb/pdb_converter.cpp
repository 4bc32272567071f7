#include "indexer/pdb/pdb_converter.h"

#include <algorithm>
#include <ranges>
#include <utility>
#include <vector>

#include "indexer/address_reader.h"
#include "indexer/pdb/pdb_borders.h"
#include "indexer/writing/index_writer.h"
#include "indexer/writing/part_builder.h"

namespace tarvo::symbolreader {
namespace {

/// Turns chains into nodes, those of the chain before used again where they are the same.
class ChainNodes {
 public:
  explicit ChainNodes(PartBuilder& part) : part_(part) {}

  PartRow RowOf(const AddressChain& chain) {
    std::uint64_t caller = 0;
    std::size_t depth = 0;
    SourceFrame call;
    for (const SourceFrame& frame : std::views::reverse(chain.frames)) {
      call.function = frame.function;
      caller = NodeOf(depth++, call, caller);
      call = frame;
    }
    const SourceFrame& innermost = chain.frames.front();
    return {
        .node = caller,
        .file = part_.NumberFile(innermost.sourceFile.View(), innermost.sourceFileChecksum.View()),
        .line = static_cast<std::uint32_t>(innermost.line)};
  }

 private:
  struct Made {
    SourceFrame frame;  ///< the function, and the place of the call that it is inlined for
    std::uint64_t caller = 0;
    std::uint64_t node = 0;
  };

  /// `depth` counts from the outermost function on.
  std::uint64_t NodeOf(std::size_t depth, const SourceFrame& frame, std::uint64_t caller) {
    if (depth >= made_.size()) made_.resize(depth + 1);
    Made& made = made_[depth];
    if (made.node != 0 && made.caller == caller && made.frame == frame) return made.node;
    made = {frame, caller,
            part_.AddNode({.name = part_.NumberPath(frame.function.View()),
                           .caller = caller,
                           .callFile = part_.NumberFile(frame.sourceFile.View(),
                                                        frame.sourceFileChecksum.View()),
                           .callLine = static_cast<std::uint32_t>(frame.line)})};
    return made.node;
  }

  PartBuilder& part_;
  std::vector<Made> made_;
};

}  // namespace

Result<void> ConvertPdbToIndex(const DebugFileFacts& facts, const std::string& key,
                               const std::string& output) {
  const auto borders = ReadPdbBorders(facts.pdbPath);
  if (!borders) return borders.GetError();
  const auto reader = OpenPdb(facts);
  if (!reader) return reader.GetError();
  IndexWriter writer;
  if (auto created = writer.Create(output); !created) return created;
  PartBuilder part(/*namesLast=*/false);
  ChainNodes nodes(part);
  for (std::size_t i = 0; i + 1 < borders->size(); ++i) {
    const std::uint64_t start = facts.image.start + (*borders)[i];
    const std::uint64_t end = std::min(facts.image.start + (*borders)[i + 1], facts.image.end);
    if (start >= end) continue;
    if (const auto chain = (*reader)->Find(start)) part.AddRow(start, end, nodes.RowOf(*chain));
  }
  writer.Add(0, part.Finish());
  writer.SetImage(facts.image);
  return writer.Finish(key, 1);
}

}  // namespace tarvo::symbolreader
