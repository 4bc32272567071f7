#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

#include "tarvo/string.h"

namespace tarvo::symbolreader {

/// The names that look-ups in indices gave last, as texts that are handed out again: crash reports
/// ask for few functions and fewer files again and again, and making a text for each frame costs as
/// much as finding its place.
///
/// Used by one thread at a time, so that the counts of the texts' holders stay with its processor.
/// Names are told apart by their index (`NewIndexNumber`) and their number in it. Texts are slices
/// of few buffers, so that handing one out touches a count that is near and not the text. Bounded
/// by its places, in each of which the later of two names stays, by the size of the names that it
/// keeps, and by its buffers: when they are full it forgets all.
class NameMemo {
 public:
  static constexpr std::size_t kPlaces = 16384;
  static constexpr std::size_t kLongestName = 256;
  static constexpr std::size_t kBufferBytes = 64 * 1024;
  static constexpr std::size_t kMostBuffers = 32;

  /// The text of the name `number`, from 1, of an index; `read` gives its bytes where it is not
  /// remembered.
  template <typename Read>
  [[nodiscard]] String Text(std::uint32_t index, std::uint32_t number, Read read) {
    const Place& place = PlaceOf(index, number);
    if (place.index == index && place.number == number) return TextAt(place);
    const std::string_view name = read();
    return name.size() > kLongestName ? String(name) : Remember(index, number, name);
  }

  /// Has the memory of two names that are asked for next fetched at once. It is seldom near, and
  /// asking for one after the other would wait twice.
  void Fetch(std::uint32_t index, std::uint32_t first, std::uint32_t second) noexcept {
    __builtin_prefetch(&PlaceOf(index, first));
    __builtin_prefetch(&PlaceOf(index, second));
  }

 private:
  static constexpr std::uint32_t kSpread = 0x9E3779B1;

  struct Place {
    std::uint32_t index;
    std::uint32_t number;
    std::uint32_t start;  ///< of the text in its buffer
    std::uint16_t size;
    std::uint16_t buffer;
  };
  static_assert(kLongestName <= std::numeric_limits<decltype(Place::size)>::max() &&
                kMostBuffers <= std::numeric_limits<decltype(Place::buffer)>::max());

  Place& PlaceOf(std::uint32_t index, std::uint32_t number) noexcept {
    return (*places_)[(number ^ index * kSpread) % kPlaces];
  }
  [[nodiscard]] String TextAt(const Place& place) const {
    return buffers_[place.buffer].Slice(place.start, place.size);
  }
  [[nodiscard]] String Remember(std::uint32_t index, std::uint32_t number, std::string_view name);

  std::unique_ptr<std::array<Place, kPlaces>> places_ =
      std::make_unique<std::array<Place, kPlaces>>();
  std::vector<String> buffers_;  ///< the last one is being filled
  char* next_ = nullptr;         ///< where the next text goes in it
  std::size_t left_ = 0;         ///< bytes of it
};

/// A number above 0 that no other index of this process has had.
[[nodiscard]] std::uint32_t NewIndexNumber() noexcept;

/// A memo for as long as this lives: one that the thread has left before, so that what was found
/// for one report serves the next ones; else one that another has left, or a new one. There are as
/// many as readers that are at work at the same time.
class BorrowedNames {
 public:
  /// Frees the memos that nobody has borrowed.
  static void Clear();

  BorrowedNames() = default;
  ~BorrowedNames();
  BorrowedNames(const BorrowedNames&) = delete;
  BorrowedNames& operator=(const BorrowedNames&) = delete;

  /// Borrowed at the first call.
  [[nodiscard]] NameMemo& Get();

 private:
  std::unique_ptr<NameMemo> memo_;
};

}  // namespace tarvo::symbolreader
