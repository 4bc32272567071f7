#include "index/name_memo.h"

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace tarvo::symbolreader {
namespace {

/// Of more readers than this at once the others' are freed.
constexpr std::size_t kMostLeft = 64;

/// The memos that nobody has borrowed.
struct Left {
  std::mutex mutex;
  std::vector<std::unique_ptr<NameMemo>> memos;
};

Left& TheLeft() {
  static Left left;
  return left;
}

}  // namespace

std::uint32_t NewIndexNumber() noexcept {
  static std::atomic<std::uint32_t> last{0};
  return ++last;
}

void BorrowedNames::Clear() {
  std::vector<std::unique_ptr<NameMemo>> dropped;
  const std::scoped_lock lock(TheLeft().mutex);
  dropped.swap(TheLeft().memos);
}

BorrowedNames::~BorrowedNames() {
  if (memo_ == nullptr) return;
  const std::scoped_lock lock(TheLeft().mutex);
  if (TheLeft().memos.size() < kMostLeft) TheLeft().memos.push_back(std::move(memo_));
}

NameMemo& BorrowedNames::Get() {
  if (memo_ != nullptr) return *memo_;
  {
    const std::scoped_lock lock(TheLeft().mutex);
    if (!TheLeft().memos.empty()) {
      memo_ = std::move(TheLeft().memos.back());
      TheLeft().memos.pop_back();
    }
  }
  if (memo_ == nullptr) memo_ = std::make_unique<NameMemo>();
  return *memo_;
}

}  // namespace tarvo::symbolreader
