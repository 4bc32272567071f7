#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "archive/archive_limits.h"
#include "files/file_descriptor.h"
#include "tarvo/result.h"

namespace tarvo {

/// What is left of an extraction's limits, for all of its threads. The errors name the limit.
class ExtractionBudget {
 public:
  explicit ExtractionBudget(const ArchiveLimits& limits) noexcept : limits_(limits) {}

  Result<void> TakeEntry();
  Result<void> TakeBytes(std::size_t count);

 private:
  const ArchiveLimits limits_;
  std::atomic<std::int64_t> entries_{0};
  std::atomic<std::int64_t> bytes_{0};
};

/// Makes the entries of an archive below one directory and nowhere else: paths are checked
/// (entry_path.h) and walked name by name without following any link, and nothing that is there is
/// replaced. Missing parents are made. Files and directories get the permissions that the umask
/// leaves, files the executable ones where asked; no other bits.
///
/// Errors say what was found or the system's reason, without naming the entry. Used by one thread;
/// several trees over one directory may work at once.
class ExtractionTree {
 public:
  /// `root`, the directory's descriptor, and `budget` outlive the tree.
  ExtractionTree(int root, ExtractionBudget& budget) noexcept : root_(root), budget_(budget) {}

  /// No error when the directory is there.
  Result<void> MakeDirectory(std::string_view path);
  /// The new file, open for writing.
  Result<FileDescriptor> MakeFile(std::string_view path, bool isExecutable);
  Result<void> MakeLink(std::string_view path, const std::string& target);

 private:
  using Names = std::vector<std::string>;

  /// Opens the directory that `names` lead to; it stays open until another one is asked for.
  Result<int> Open(Names names);
  Result<FileDescriptor> OpenChild(int directory, const std::string& name);
  /// The place of an entry: its directory, its own name, and how deep the directory lies.
  struct Place {
    int directory;
    std::string name;
    std::size_t depth;
  };
  Result<Place> PlaceOf(std::string_view path);

  const int root_;
  ExtractionBudget& budget_;
  Names openNames_;
  FileDescriptor open_;
};

}  // namespace tarvo
