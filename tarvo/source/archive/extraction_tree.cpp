#include "archive/extraction_tree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "archive/entry_path.h"
#include "archive/system_failure.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kExtractionTree{"tarvo/source/extraction_tree"};

/// Why a new file or link could not be made; entries never replace each other.
Error NotMade(SourceLocation where, int reason) {
  if (reason == EEXIST) return Error::Plain(where, "the archive holds it twice");
  return SystemFailure(where, reason);
}

}  // namespace

Result<void> ExtractionBudget::TakeEntry() {
  if (entries_.fetch_add(1, std::memory_order_relaxed) < limits_.entries) return {};
  return Error::Plain(
      kExtractionTree.Here(),
      Format("the archive holds more than @ entries (g_archiveMaximumEntries)", limits_.entries));
}

Result<void> ExtractionBudget::TakeBytes(std::size_t count) {
  const auto added = static_cast<std::int64_t>(count);
  if (bytes_.fetch_add(added, std::memory_order_relaxed) + added <= limits_.bytes) return {};
  return Error::Plain(
      kExtractionTree.Here(),
      Format("the archive holds more than @ bytes (g_archiveMaximumBytes)", limits_.bytes));
}

Result<FileDescriptor> ExtractionTree::OpenChild(int directory, const std::string& name) {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor child(Uninterrupted([&] { return openat(directory, name.c_str(), kFlags); }));
  if (child.IsOpen()) return child;
  if (errno == ENOTDIR) {
    return Error::Plain(
        kExtractionTree.Here(),
        Format("its path leads through \"@\", which is no directory", NameForMessage(name)));
  }
  if (errno != ENOENT) return SystemFailure(kExtractionTree.Here(), errno);
  if (mkdirat(directory, name.c_str(), 0777) == 0) {
    if (auto taken = budget_.TakeEntry(); !taken) return taken.GetError();
  } else if (errno != EEXIST) {  // another thread may have made it meanwhile
    return SystemFailure(kExtractionTree.Here(), errno);
  }
  child = FileDescriptor(Uninterrupted([&] { return openat(directory, name.c_str(), kFlags); }));
  if (!child.IsOpen()) return SystemFailure(kExtractionTree.Here(), errno);
  return child;
}

Result<int> ExtractionTree::Open(Names names) {
  if (names.empty()) return root_;
  // Entries of one directory mostly follow each other.
  if (open_.IsOpen() && names == openNames_) return open_.Get();
  FileDescriptor current;
  for (const std::string& name : names) {
    auto child = OpenChild(current.IsOpen() ? current.Get() : root_, name);
    if (!child) return child.GetError();
    current = *std::move(child);
  }
  open_ = std::move(current);
  openNames_ = std::move(names);
  return open_.Get();
}

Result<ExtractionTree::Place> ExtractionTree::PlaceOf(std::string_view path) {
  auto names = EntryNames(path);
  if (!names) return names.GetError();
  if (names->empty()) return Error::Plain(kExtractionTree.Here(), "its path names no file");
  std::string name = std::move(names->back());
  names->pop_back();
  const std::size_t depth = names->size();
  const Result<int> directory = Open(*std::move(names));
  if (!directory) return directory.GetError();
  return Place{*directory, std::move(name), depth};
}

Result<void> ExtractionTree::MakeDirectory(std::string_view path) {
  auto names = EntryNames(path);
  if (!names) return names.GetError();
  const Result<int> directory = Open(*std::move(names));
  return directory ? Result<void>() : directory.GetError();
}

Result<FileDescriptor> ExtractionTree::MakeFile(std::string_view path, bool isExecutable) {
  if (auto taken = budget_.TakeEntry(); !taken) return taken.GetError();
  const Result<Place> place = PlaceOf(path);
  if (!place) return place.GetError();
  FileDescriptor file(Uninterrupted([&] {
    return openat(place->directory, place->name.c_str(),
                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, isExecutable ? 0777 : 0666);
  }));
  if (!file.IsOpen()) return NotMade(kExtractionTree.Here(), errno);
  return file;
}

Result<void> ExtractionTree::MakeLink(std::string_view path, const std::string& target) {
  if (auto taken = budget_.TakeEntry(); !taken) return taken;
  const Result<Place> place = PlaceOf(path);
  if (!place) return place.GetError();
  if (auto checked = CheckLinkTarget(target, place->depth); !checked) return checked;
  if (symlinkat(target.c_str(), place->directory, place->name.c_str()) != 0)
    return NotMade(kExtractionTree.Here(), errno);
  return {};
}

}  // namespace tarvo
