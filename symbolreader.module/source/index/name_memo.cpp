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

String NameMemo::Remember(std::uint32_t index, std::uint32_t number, std::string_view name) {
  if (buffers_.empty() || name.size() > left_) {
    if (buffers_.size() == kMostBuffers) {
      places_->fill({});
      buffers_.clear();
    }
    buffers_.reserve(kMostBuffers);  // so that no place for text is there without its buffer
    buffers_.push_back(String::Build(kBufferBytes, [&](char* to) {
      next_ = to;
      return left_ = kBufferBytes;
    }));
  }
  Place& place = PlaceOf(index, number);
  place = {.index = index,
           .number = number,
           .start = static_cast<std::uint32_t>(kBufferBytes - left_),
           .size = static_cast<std::uint16_t>(name.size()),
           .buffer = static_cast<std::uint16_t>(buffers_.size() - 1)};
  next_ = std::ranges::copy(name, next_).out;
  left_ -= name.size();
  return TextAt(place);
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
