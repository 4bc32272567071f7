#include "crashlog/symbols/archive_directory.h"

#include <utility>

#include "connection.h"

namespace tarvo::crashhandler {
namespace {

/// Opens `directory` for listing where `iterator` is not open yet.
Result<void> Browse(Ref<BrowseIterator>& iterator, const Url& directory) {
  Result<Ref<BrowseIterator>> opened = g_tarvo.framework->Files().Browse(directory);
  if (!opened) return opened.GetError();
  iterator = *std::move(opened);
  return {};
}

/// The next directory of a listing; false at its end.
Result<bool> NextDirectory(BrowseIterator& iterator, DirectoryEntry& entry) {
  for (;;) {
    Result<bool> isThere = iterator.Next(entry);
    if (!isThere || !*isThere || (entry.attributes & kDirectoryAttribute) != 0) return isThere;
  }
}

}  // namespace

Result<const DirectoryEntry*> ArchiveDirectory::SecondLevel(std::size_t index) {
  while (directories_.size() <= index && !end_)
    if (Result<void> listed = ListOneMore(); !listed) end_ = listed;
  if (index < directories_.size()) return &directories_[index];
  if (!*end_) return end_->GetError();
  return static_cast<const DirectoryEntry*>(nullptr);
}

Result<void> ArchiveDirectory::ListOneMore() {
  if (!first_)
    if (Result<void> opened = Browse(first_, root_); !opened) return opened;
  DirectoryEntry entry;
  const Result<bool> isThere = NextDirectory(second_ ? *second_ : *first_, entry);
  if (!isThere) return isThere.GetError();
  if (*isThere && second_) {
    directories_.push_back(std::move(entry));
  } else if (*isThere) {
    return Browse(second_, entry.url);
  } else if (second_) {
    second_ = nullptr;
  } else {
    end_ = Result<void>();
  }
  return {};
}

}  // namespace tarvo::crashhandler
