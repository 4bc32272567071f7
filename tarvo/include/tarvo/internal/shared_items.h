#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace tarvo {
struct BorderLayout;
}

namespace tarvo::data_internal {

/// The header of items that need none.
struct NoHeader {};

/// Whether an Item may be moved by copying its bytes, the place that it leaves being forgotten: no
/// pointer leads into it, its own neither.
template <typename Item>
inline constexpr bool kMovesAsBytes = false;

/// Items behind a header in one reference-counted allocation, which is copied when a holder that is
/// not alone changes it. A null pointer stands for no items, so empty trees cost nothing.
template <typename Item, typename Header>
class SharedItems {
 public:
  SharedItems() noexcept = default;
  SharedItems(const SharedItems& other) noexcept : block_(other.block_) {
    if (block_ != nullptr) block_->references.fetch_add(1, std::memory_order_relaxed);
  }
  SharedItems(SharedItems&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  SharedItems& operator=(SharedItems other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~SharedItems() {
    // Nobody can come to share what has one holder, so the last one need not lock the bus.
    if (block_ != nullptr &&
        (IsAlone() || block_->references.fetch_sub(1, std::memory_order_acq_rel) == 1))
      Block::Destroy(block_);
  }

  [[nodiscard]] std::size_t Size() const noexcept { return block_ == nullptr ? 0 : block_->size; }
  [[nodiscard]] const Item* Items() const noexcept {
    return block_ == nullptr ? nullptr : block_->Items();
  }
  /// The header; there must be items.
  [[nodiscard]] const Header& GetHeader() const noexcept { return block_->header; }

  /// The items and the header to change, which no other holder sees; there must be items.
  [[nodiscard]] Item* MutableItems() {
    if (!IsAlone()) MoveTo(block_->capacity);
    return block_->Items();
  }
  [[nodiscard]] Header& MutableHeader() {
    if (!IsAlone()) MoveTo(block_->capacity);
    return block_->header;
  }

  /// Adds an item made from `parts`, which must not be parts of these items. Not inlined: it would
  /// swell its callers, and GCC 12 takes a moved variant's other alternatives for uninitialised.
  template <typename... Parts>
  [[gnu::noinline]] void Append(Parts&&... parts) {
    if (block_ == nullptr || block_->size == block_->capacity) {
      MoveTo(std::max(kFewest, 2 * Size()));
    } else if (!IsAlone()) {
      MoveTo(block_->capacity);
    }
    new (block_->Items() + block_->size) Item{std::forward<Parts>(parts)...};
    ++block_->size;
  }
  void Reserve(std::size_t count) {
    if (block_ == nullptr ? count > 0 : count > block_->capacity) MoveTo(count);
  }

 private:
  friend struct tarvo::BorderLayout;

  static constexpr std::size_t kFewest = 2;

  struct Block {
    std::atomic<std::size_t> references{1};
    std::size_t size = 0;
    std::size_t capacity;
    [[no_unique_address]] Header header;

    explicit Block(std::size_t count) noexcept : capacity(count) {}
    [[nodiscard]] Item* Items() noexcept { return reinterpret_cast<Item*>(this + 1); }

    static Block* Create(std::size_t capacity) {
      static_assert(alignof(Item) <= alignof(Block));
      return new (::operator new(sizeof(Block) + capacity * sizeof(Item))) Block(capacity);
    }
    static void Destroy(Block* block) noexcept {
      std::destroy_n(block->Items(), block->size);
      block->~Block();
      ::operator delete(block);
    }
  };

  [[nodiscard]] bool IsAlone() const noexcept {
    return block_->references.load(std::memory_order_acquire) == 1;
  }

  /// Leaves in `from` what is still to be destroyed.
  static void MoveItems(Block& from, Block& to) noexcept {
    if constexpr (kMovesAsBytes<Item>) {
      std::memcpy(static_cast<void*>(to.Items()), static_cast<const void*>(from.Items()),
                  from.size * sizeof(Item));
      to.size = std::exchange(from.size, 0);
    } else {
      std::uninitialized_move_n(from.Items(), from.size, to.Items());
      to.size = from.size;
    }
  }

  /// Puts the items into a block of their own: moves them when nobody shares them.
  void MoveTo(std::size_t capacity) {
    SharedItems fresh;
    fresh.block_ = Block::Create(capacity);
    if (block_ != nullptr && IsAlone()) {
      MoveItems(*block_, *fresh.block_);
      fresh.block_->header = std::move(block_->header);
    } else if (block_ != nullptr) {
      fresh.block_->header = block_->header;
      std::uninitialized_copy_n(block_->Items(), block_->size, fresh.block_->Items());
      fresh.block_->size = block_->size;
    }
    std::swap(block_, fresh.block_);
  }

  Block* block_ = nullptr;
};

}  // namespace tarvo::data_internal
