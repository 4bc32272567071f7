#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

class DataValue;

namespace data_internal {

/// Reference-counted contents that are copied when a holder that is not alone changes them. A null
/// pointer stands for empty contents, so empty trees cost nothing.
template <typename Contents>
class CopyOnWrite {
 public:
  CopyOnWrite() noexcept = default;
  CopyOnWrite(const CopyOnWrite& other) noexcept : shared_(other.shared_) {
    if (shared_ != nullptr) shared_->references.fetch_add(1, std::memory_order_relaxed);
  }
  CopyOnWrite(CopyOnWrite&& other) noexcept : shared_(std::exchange(other.shared_, nullptr)) {}
  CopyOnWrite& operator=(CopyOnWrite other) noexcept {
    std::swap(shared_, other.shared_);
    return *this;
  }
  ~CopyOnWrite() {
    if (shared_ != nullptr && shared_->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
      delete shared_;
  }

  /// The contents to read; null when empty.
  [[nodiscard]] const Contents* Read() const noexcept {
    return shared_ == nullptr ? nullptr : &shared_->contents;
  }
  /// The contents to change, which no other holder sees.
  [[nodiscard]] Contents& Write() {
    if (shared_ == nullptr) {
      shared_ = new Shared{};
    } else if (shared_->references.load(std::memory_order_acquire) != 1) {
      CopyOnWrite alone;
      alone.shared_ = new Shared{.contents = shared_->contents};
      std::swap(shared_, alone.shared_);
    }
    return shared_->contents;
  }

 private:
  struct Shared {
    std::atomic<std::size_t> references{1};
    Contents contents;
  };
  Shared* shared_ = nullptr;
};

}  // namespace data_internal

/// An array of values: a value type with shared, copy-on-write contents.
class DataArray {
 public:
  void Append(DataValue value);
  void Reserve(std::size_t count);
  [[nodiscard]] std::size_t Size() const noexcept;
  [[nodiscard]] bool IsEmpty() const noexcept { return Size() == 0; }
  /// The element at `index`, which must be below Size().
  [[nodiscard]] const DataValue& operator[](std::size_t index) const noexcept;
  /// The element at `index` to change in place; other holders of the contents do not see it.
  [[nodiscard]] DataValue& Mutable(std::size_t index);
  [[nodiscard]] const DataValue* begin() const noexcept;
  [[nodiscard]] const DataValue* end() const noexcept;

 private:
  data_internal::CopyOnWrite<std::vector<DataValue>> contents_;
};

/// A map from texts to dynamically typed values that keeps the order of insertion: a value type
/// with shared, copy-on-write contents, so handing a tree on copies nothing. Keys are compared
/// byte by byte. Look-up and insertion take constant time on average however the keys are chosen
/// (larger dictionaries carry an index that is keyed by a random seed).
///
/// Thread safety: as for standard containers; separate copies are independent.
class DataDictionary {
 public:
  struct Entry;

  /// Sets the value of `key`. A key that is there keeps its place in the order.
  void Set(String key, DataValue value);
  /// Prepares for `count` entries.
  void Reserve(std::size_t count);

  [[nodiscard]] std::size_t Size() const noexcept;
  [[nodiscard]] bool IsEmpty() const noexcept { return Size() == 0; }

  /// The value of `key`, or null when there is none.
  [[nodiscard]] const DataValue* Find(std::string_view key) const noexcept;
  /// The same to change in place; other holders of the contents do not see the change.
  [[nodiscard]] DataValue* FindMutable(std::string_view key);
  /// The value of `key` as a T; null when there is none or it is of another type.
  template <typename T>
  [[nodiscard]] const T* FindAs(std::string_view key) const noexcept;
  /// The value of `key` as a T; an illegal-argument error that names the key when there is none or
  /// it is of another type.
  template <typename T>
  [[nodiscard]] Result<T> Get(std::string_view key) const;

  [[nodiscard]] const Entry* begin() const noexcept;
  [[nodiscard]] const Entry* end() const noexcept;

 private:
  struct Contents;
  [[nodiscard]] std::size_t IndexOf(std::string_view key) const noexcept;
  data_internal::CopyOnWrite<Contents> contents_;
};

/// One value of a tree: nothing, a truth value, a number, a text, a URL, an array, a dictionary.
class DataValue {
 public:
  using Variant = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, String,
                               Url, DataArray, DataDictionary>;

  DataValue() noexcept = default;
  DataValue(bool value) noexcept : value_(value) {}                       // NOLINT
  DataValue(double value) noexcept : value_(value) {}                     // NOLINT
  DataValue(String value) noexcept : value_(std::move(value)) {}          // NOLINT
  DataValue(const char* value) : value_(String(value)) {}                 // NOLINT
  DataValue(Url value) noexcept : value_(std::move(value)) {}             // NOLINT
  DataValue(DataArray value) noexcept : value_(std::move(value)) {}       // NOLINT
  DataValue(DataDictionary value) noexcept : value_(std::move(value)) {}  // NOLINT
  template <std::signed_integral T>
  DataValue(T value) noexcept : value_(std::int64_t{value}) {}  // NOLINT
  template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>)
  DataValue(T value) noexcept : value_(std::uint64_t{value}) {}  // NOLINT

  /// The value as a T (one of Variant's types), or null when it is of another type.
  template <typename T>
  [[nodiscard]] const T* As() const noexcept {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  [[nodiscard]] T* As() noexcept {
    return std::get_if<T>(&value_);
  }

  [[nodiscard]] const Variant& Get() const noexcept { return value_; }

 private:
  Variant value_;
};

struct DataDictionary::Entry {
  String key;
  DataValue value;
};

/// Entries in order and, above kIndexedFrom of them, an open-addressing table of their positions.
struct DataDictionary::Contents {
  static constexpr std::size_t kIndexedFrom = 48;
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  std::vector<Entry> entries;
  std::vector<std::uint32_t> table;  ///< position + 1, or 0; a power of two, at most half full
  std::uint64_t seed = 0;

  [[nodiscard]] std::size_t IndexOf(std::string_view key) const noexcept {
    if (table.empty()) {
      for (std::size_t i = 0; i < entries.size(); ++i)
        if (entries[i].key.View() == key) return i;
      return kNone;
    }
    const std::size_t mask = table.size() - 1;
    for (std::size_t slot = Hash(key) & mask; table[slot] != 0; slot = (slot + 1) & mask)
      if (entries[table[slot] - 1].key.View() == key) return table[slot] - 1;
    return kNone;
  }

  void Add(String key, DataValue value) {
    entries.push_back({std::move(key), std::move(value)});
    if (entries.size() > kIndexedFrom && 2 * entries.size() > table.size()) {
      Rebuild();
    } else if (!table.empty()) {
      Insert(entries.size() - 1);
    }
  }

 private:
  void Rebuild() {
    // The address of a fresh allocation and of this library make the seed: neither is known to
    // whoever wrote the keys.
    if (seed == 0)
      seed = Mix(reinterpret_cast<std::uintptr_t>(entries.data()),
                 reinterpret_cast<std::uintptr_t>(&kIndexedFrom) ^ 0x9E3779B97F4A7C15U) |
             1;
    std::size_t size = 4 * kIndexedFrom;
    while (size < 4 * entries.size()) size *= 2;
    table.assign(std::bit_ceil(size), 0);
    for (std::size_t i = 0; i < entries.size(); ++i) Insert(i);
  }
  void Insert(std::size_t position) noexcept {
    const std::size_t mask = table.size() - 1;
    std::size_t slot = Hash(entries[position].key) & mask;
    while (table[slot] != 0) slot = (slot + 1) & mask;
    table[slot] = static_cast<std::uint32_t>(position + 1);
  }
  /// Multiply-and-fold over eight bytes at a time, keyed by the seed.
  [[nodiscard]] std::uint64_t Hash(std::string_view key) const noexcept {
    std::uint64_t hash = seed ^ key.size();
    while (key.size() >= 8) {
      hash = Mix(hash ^ Load(key.substr(0, 8)), seed);
      key.remove_prefix(8);
    }
    return Mix(hash ^ Load(key), seed ^ 0xD6E8FEB86659FD93U);
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

inline void DataDictionary::Set(String key, DataValue value) {
  Contents& contents = contents_.Write();
  const std::size_t at = contents.IndexOf(key);
  if (at == Contents::kNone) {
    contents.Add(std::move(key), std::move(value));
  } else {
    contents.entries[at].value = std::move(value);
  }
}

inline void DataDictionary::Reserve(std::size_t count) { contents_.Write().entries.reserve(count); }

inline std::size_t DataDictionary::Size() const noexcept {
  const Contents* contents = contents_.Read();
  return contents == nullptr ? 0 : contents->entries.size();
}

inline std::size_t DataDictionary::IndexOf(std::string_view key) const noexcept {
  const Contents* contents = contents_.Read();
  return contents == nullptr ? Contents::kNone : contents->IndexOf(key);
}

inline const DataValue* DataDictionary::Find(std::string_view key) const noexcept {
  const std::size_t at = IndexOf(key);
  return at == Contents::kNone ? nullptr : &contents_.Read()->entries[at].value;
}

inline DataValue* DataDictionary::FindMutable(std::string_view key) {
  const std::size_t at = IndexOf(key);
  return at == Contents::kNone ? nullptr : &contents_.Write().entries[at].value;
}

template <typename T>
const T* DataDictionary::FindAs(std::string_view key) const noexcept {
  const DataValue* value = Find(key);
  return value == nullptr ? nullptr : value->As<T>();
}

template <typename T>
Result<T> DataDictionary::Get(std::string_view key) const {
  static constexpr SourceFile kSource{"tarvo/include/tarvo/data_dictionary"};
  const DataValue* value = Find(key);
  if (value != nullptr && value->As<T>() != nullptr) return *value->As<T>();
  std::string message = value == nullptr ? "There is no value of key " : "Another type has key ";
  message += key;
  return Error::IllegalArgument(kSource.Here(), String(message));
}

inline const DataDictionary::Entry* DataDictionary::begin() const noexcept {
  const Contents* contents = contents_.Read();
  return contents == nullptr ? nullptr : contents->entries.data();
}
inline const DataDictionary::Entry* DataDictionary::end() const noexcept {
  return begin() + Size();
}

inline void DataArray::Append(DataValue value) { contents_.Write().push_back(std::move(value)); }
inline void DataArray::Reserve(std::size_t count) { contents_.Write().reserve(count); }
inline std::size_t DataArray::Size() const noexcept {
  return contents_.Read() == nullptr ? 0 : contents_.Read()->size();
}
inline const DataValue& DataArray::operator[](std::size_t index) const noexcept {
  return (*contents_.Read())[index];
}
inline DataValue& DataArray::Mutable(std::size_t index) { return contents_.Write()[index]; }
inline const DataValue* DataArray::begin() const noexcept {
  return contents_.Read() == nullptr ? nullptr : contents_.Read()->data();
}
inline const DataValue* DataArray::end() const noexcept { return begin() + Size(); }

}  // namespace tarvo
