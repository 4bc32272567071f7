#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvo {
struct BorderLayout;
}

namespace tarvo::data_internal {

/// Whether two texts of `size` bytes are equal. Keys are short: comparing them in two overlapping
/// words costs less than a call.
inline bool AreEqual(const char* a, const char* b, std::size_t size) noexcept {
  const auto same = [&]<typename Word>(Word) {
    Word words[4];
    std::memcpy(&words[0], a, sizeof(Word));
    std::memcpy(&words[1], b, sizeof(Word));
    std::memcpy(&words[2], a + size - sizeof(Word), sizeof(Word));
    std::memcpy(&words[3], b + size - sizeof(Word), sizeof(Word));
    return words[0] == words[1] && words[2] == words[3];
  };
  if (size > 16) return std::memcmp(a, b, size) == 0;
  if (size >= 8) return same(std::uint64_t{});
  if (size >= 4) return same(std::uint32_t{});
  if (size >= 2) return same(std::uint16_t{});
  return size == 0 || *a == *b;
}

/// Finds the entries of larger dictionaries by their keys: an open-addressing table of positions,
/// keyed by a random seed, so that nobody can choose keys that collide.
class KeyIndex {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  KeyIndex() noexcept = default;
  KeyIndex(KeyIndex&&) noexcept = default;
  KeyIndex& operator=(KeyIndex&&) noexcept = default;
  KeyIndex& operator=(const KeyIndex& other) {
    table_ = other.table_ == nullptr ? nullptr : std::make_unique<Table>(*other.table_);
    return *this;
  }

  /// The position of `key` among `count` entries, all of which were added.
  template <typename Entry>
  [[nodiscard]] std::size_t Find(std::string_view key, const Entry* entries,
                                 std::size_t count) const noexcept {
    const auto isKey = [&](std::size_t position) {
      const std::string_view other = entries[position].key;
      return other.size() == key.size() && AreEqual(other.data(), key.data(), key.size());
    };
    if (table_ == nullptr) {
      for (std::size_t position = 0; position < count; ++position)
        if (isKey(position)) return position;
      return kNone;
    }
    const std::uint32_t hash = table_->Hash(key);
    for (std::size_t at = hash;; ++at) {
      const Slot& slot = table_->slots[at & (table_->slots.size() - 1)];
      if (slot.positionAndOne == 0) return kNone;
      if (slot.hash == hash && isKey(slot.positionAndOne - 1)) return slot.positionAndOne - 1;
    }
  }

  /// Takes note of the last of `count` entries.
  template <typename Entry>
  void Add(const Entry* entries, std::size_t count) {
    if (count <= kIndexedFrom) return;
    std::size_t first = count - 1;
    if (table_ == nullptr) {
      table_ = std::make_unique<Table>();
      first = 0;
    }
    if (2 * count > table_->slots.size()) table_->Grow();
    for (std::size_t i = first; i < count; ++i)
      table_->Place({static_cast<std::uint32_t>(i + 1), table_->Hash(entries[i].key)});
  }

 private:
  friend struct tarvo::BorderLayout;

  /// Up to this many keys are looked through one by one.
  static constexpr std::size_t kIndexedFrom = 48;

  struct Slot {
    std::uint32_t positionAndOne = 0;  ///< 0: no key is here
    std::uint32_t hash = 0;            ///< spares looking at most other keys
  };

  struct Table {
    std::vector<Slot> slots = std::vector<Slot>(2 * std::bit_ceil(kIndexedFrom));
    // The address of a fresh allocation and of this library make the seed: neither is known to
    // whoever wrote the keys.
    std::uint64_t seed = Mix(reinterpret_cast<std::uintptr_t>(this),
                             reinterpret_cast<std::uintptr_t>(&kNone) ^ 0x9E3779B97F4A7C15U) |
                         1;

    /// Keeps a power of two of slots, at most half of them in use.
    void Grow() {
      const std::vector<Slot> old = std::exchange(slots, std::vector<Slot>(2 * slots.size()));
      for (const Slot& slot : old)
        if (slot.positionAndOne != 0) Place(slot);
    }
    void Place(Slot slot) noexcept {
      std::size_t at = slot.hash;
      while (slots[at & (slots.size() - 1)].positionAndOne != 0) ++at;
      slots[at & (slots.size() - 1)] = slot;
    }
    /// Multiply-and-fold over eight bytes at a time, keyed by the seed.
    [[nodiscard]] std::uint32_t Hash(std::string_view key) const noexcept {
      std::uint64_t hash = seed ^ key.size();
      while (key.size() >= 8) {
        hash = Mix(hash ^ Load(key.substr(0, 8)), seed);
        key.remove_prefix(8);
      }
      return static_cast<std::uint32_t>(Mix(hash ^ Load(key), seed ^ 0xD6E8FEB86659FD93U));
    }
    static std::uint64_t Load(std::string_view bytes) noexcept {
      std::uint64_t word = 0;
      std::memcpy(&word, bytes.data(), bytes.size());
      return word;
    }
    static std::uint64_t Mix(std::uint64_t a, std::uint64_t b) noexcept {
      __extension__ using Wide = unsigned __int128;
      const Wide product = static_cast<Wide>(a) * b;
      return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
    }
  };
  std::unique_ptr<Table> table_;
};

}  // namespace tarvo::data_internal
