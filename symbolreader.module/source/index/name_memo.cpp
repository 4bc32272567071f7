#include "index/name_memo.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tarvo::symbolreader {
namespace {

/// Of more readers than this at once the others' are freed.
constexpr std::size_t kMostLeft = 64;

struct LeftMemo {
  std::thread::id thread;  ///< that has left it
  std::unique_ptr<NameMemo> memo;
};

/// The memos that nobody has borrowed.
struct Left {
  std::mutex mutex;
  std::vector<LeftMemo> memos;
};

Left& TheLeft() {
  static Left left;
  return left;
}

}  // namespace

String NameMemo::Keep(std::string_view name) {
  if (name.empty()) return {};
  if (name.size() > left_) {
    if (buffersMade_ == kMostBuffers) {
      places_->fill({});
      buffersMade_ = 0;
    }
    buffer_ = String::Build(kBufferBytes, [&](char* to) {
      next_ = to;
      return left_ = kBufferBytes;
    });
    ++buffersMade_;
  }
  const std::size_t start = kBufferBytes - left_;
  next_ = std::ranges::copy(name, next_).out;
  left_ -= name.size();
  return buffer_.Slice(start, name.size());
}

std::uint32_t NewIndexNumber() noexcept {
  static std::atomic<std::uint32_t> last{0};
  return ++last;
}

void BorrowedNames::Clear() {
  std::vector<LeftMemo> dropped;
  const std::scoped_lock lock(TheLeft().mutex);
  dropped.swap(TheLeft().memos);
}

BorrowedNames::~BorrowedNames() {
  if (memo_ == nullptr) return;
  const std::scoped_lock lock(TheLeft().mutex);
  if (TheLeft().memos.size() < kMostLeft)
    TheLeft().memos.push_back({std::this_thread::get_id(), std::move(memo_)});
}

NameMemo& BorrowedNames::Get() {
  if (memo_ != nullptr) return *memo_;
  {
    const std::scoped_lock lock(TheLeft().mutex);
    auto& memos = TheLeft().memos;
    // Its own, if it can: another one's texts are in another processor's memory.
    auto found = std::ranges::find(memos, std::this_thread::get_id(), &LeftMemo::thread);
    if (found == memos.end() && !memos.empty()) found = std::prev(memos.end());
    if (found != memos.end()) {
      memo_ = std::move(found->memo);
      memos.erase(found);
    }
  }
  if (memo_ == nullptr) memo_ = std::make_unique<NameMemo>();
  return *memo_;
}

}  // namespace tarvo::symbolreader
