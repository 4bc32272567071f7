#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <set>

#include "configuration.h"
#include "connection.h"
#include "files/debug_file_contents.h"
#include "files/pdb_identity.h"
#include "index/index_file.h"
#include "index/index_format.h"
#include "index/index_store.h"
#include "indexer_client/indexer_process.h"
#include "indexer_client/indexer_source.h"
#include "source.h"
#include "symbol_file.h"
#include "tarvo/format.h"
#include "tarvo/resolve_observer.h"

namespace tarvo::symbolreader {
namespace {

/// How much longer than an index may take one waits for another's.
constexpr std::int64_t kLockMargin = 10;

/// Writes a diagnostic line; the same text only once in a process.
void WarnOnce(const String& text) {
  static std::mutex mutex;
  static std::set<String> written;
  {
    const std::scoped_lock lock(mutex);
    if (!written.insert(text).second) return;
  }
  g_tarvo.framework->Output().Diagnostic(kSource.Here(), text);
}

IndexerLimits Limits() { return {.megabytes = g_symbolIndexMemory, .seconds = g_symbolIndexTime}; }

/// Brings one debug file's index, or says once why there is none.
class IndexOpener {
 public:
  IndexOpener(const DebugFileFacts& facts, const std::string& architecture)
      : facts_(facts),
        architecture_(architecture),
        store_(IndexDirectory(),
               Format("@-@-v@", facts.id, facts.architecture, kIndexVersion).ToStdString()),
        limits_(Limits()) {}

  FoundIndex Open() const;

 private:
  [[nodiscard]] FoundIndex Find() const {
    return OpenIndex(store_.IndexPath(), store_.Key(), facts_.path);
  }
  FoundIndex Make() const;
  /// Tells the ResolveObserver, if there is one, how far it is.
  [[nodiscard]] std::optional<IndexFailure> RunInto(const std::string& output) const;
  [[nodiscard]] FoundIndex Publish(const std::string& output) const;
  void Warn(std::string_view reason) const {
    WarnOnce(
        Format("No index for the debug file @: @. It is resolved without one, which is slower.",
               facts_.path, reason));
  }

  const DebugFileFacts& facts_;
  const std::string architecture_;  ///< as asked: it may name one of several like slices
  IndexStore store_;
  IndexerLimits limits_;
};

FoundIndex IndexOpener::Open() const {
  if (IndexDirectory().empty()) {
    WarnOnce(
        "There is no directory for symbol indices (g_symbolIndexDirectory and HOME are not "
        "set). Symbol files are resolved without, which is slower.");
    return {};
  }
  if (FoundIndex found = Find(); found.state == IndexState::Usable) return found;
  const auto lock = store_.TakeLock(std::chrono::seconds(limits_.seconds + kLockMargin));
  if (!lock) {
    WarnOnce(
        Format("@ Symbol files are resolved without an index, which is slower.", lock.GetError()));
    return {};
  }
  // Who held the lock before may have made it.
  if (FoundIndex found = Find(); found.state == IndexState::Usable) return found;
  if (auto failure = store_.RememberedFailure(limits_.Text(), facts_.path)) {
    Warn(failure->reason);
    return {.missing = std::move(failure->parts)};
  }
  store_.RemoveLeftovers();
  return Make();
}

std::optional<IndexFailure> IndexOpener::RunInto(const std::string& output) const {
  const auto observer = Bind<ResolveObserver>(*g_tarvo.framework);
  const String file(facts_.path);
  bool hasTold = false;
  const auto tell = [&](std::uint64_t done, std::uint64_t all) {
    if (!observer) return;
    (*observer)->Working({SymbolWork::Indexing, file, done, all});
    hasTold = true;
  };
  auto failure = RunIndexer({.debugFile = facts_.path,
                             .architecture = architecture_,
                             .key = store_.Key(),
                             .output = output,
                             .limits = limits_},
                            tell);
  if (hasTold) (*observer)->WorkEnds();
  return failure;
}

FoundIndex IndexOpener::Make() const {
  const std::string output = store_.TemporaryPath();
  auto failure = RunInto(output);
  if (!failure) {
    if (auto found = Publish(output); found.source != nullptr) return found;
    failure = IndexFailure{.reason = "it could not be written"};
  }
  unlink(output.c_str());
  if (failure->isLasting)
    store_.RememberFailure(limits_.Text(), {.reason = failure->reason, .parts = failure->parts});
  Warn(failure->reason);
  return {.missing = std::move(failure->parts)};
}

FoundIndex IndexOpener::Publish(const std::string& output) const {
  return store_.Publish(output) ? Find() : FoundIndex{};
}

/// Whether an index may be made for the file: of one with a PDB, where that is the right one. What
/// is wrong with it is for its reader to say, and to be found right another time.
bool IsIndexable(const DebugFileFacts& facts) {
  if (facts.pdbPath.empty()) return true;
  const auto pdb = MapFile(facts.pdbPath);
  const auto identity = pdb ? ReadPdbIdentity((*pdb)->getBuffer()) : std::nullopt;
  return identity && identity->id == facts.id;
}

}  // namespace

Result<SymbolFileRef> OpenSymbolFile(const std::string& path, const DebugFileRequest& request) {
  const auto file = OpenDebugFile(path, request);
  if (!file) return file.GetError();
  const DebugFileFacts& facts = (*file)->Facts();
  auto opened = std::make_shared<SymbolFile>();
  opened->path = facts.path;
  opened->format = facts.format;
  opened->image = facts.image;
  if (IsIndexable(facts)) {
    FoundIndex found = IndexOpener(facts, request.architecture).Open();
    opened->source = std::move(found.source);
    opened->missing = std::move(found.missing);
    if (facts.image.Size() == 0) opened->image = {found.imageStart, found.imageEnd};
  }
  if (opened->source == nullptr) {
    std::error_code ignored;
    const std::size_t bytes =
        std::filesystem::file_size(facts.pdbPath.empty() ? facts.path : facts.pdbPath, ignored);
    auto answers = MakeIndexerSource(path, request.architecture, Limits(), bytes);
    if (!answers) return answers.GetError();
    opened->source = std::move(answers->source);
    opened->image = answers->image;
  }
  return SymbolFileRef(std::move(opened));
}

}  // namespace tarvo::symbolreader
