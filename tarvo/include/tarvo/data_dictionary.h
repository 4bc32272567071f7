#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "tarvo/internal/key_index.h"
#include "tarvo/internal/shared_items.h"
#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

class DataValue;

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
  friend struct BorderLayout;
  data_internal::SharedItems<DataValue, data_internal::NoHeader> items_;
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
  friend struct BorderLayout;
  [[nodiscard]] std::size_t IndexOf(std::string_view key) const noexcept;
  data_internal::SharedItems<Entry, data_internal::KeyIndex> entries_;
};

/// One value of a tree: nothing, a truth value, a number, a text, a URL, an array, a dictionary.
class DataValue {
 public:
  using Variant = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, String,
                               Url, DataArray, DataDictionary>;

  DataValue() noexcept = default;
  explicit(false) DataValue(bool value) noexcept : value_(value) {}
  explicit(false) DataValue(double value) noexcept : value_(value) {}
  explicit(false) DataValue(String value) noexcept : value_(std::move(value)) {}
  explicit(false) DataValue(const char* value) : value_(String(value)) {}
  explicit(false) DataValue(Url value) noexcept : value_(std::move(value)) {}
  explicit(false) DataValue(DataArray value) noexcept : value_(std::move(value)) {}
  explicit(false) DataValue(DataDictionary value) noexcept : value_(std::move(value)) {}
  template <std::signed_integral T>
  explicit(false) DataValue(T value) noexcept : value_(std::int64_t{value}) {}
  template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>)
  explicit(false) DataValue(T value) noexcept : value_(std::uint64_t{value}) {}

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
  friend struct BorderLayout;
  Variant value_;
};

struct DataDictionary::Entry {
  String key;
  DataValue value;
};

/// Texts and trees hold what they have by one pointer each.
template <>
inline constexpr bool data_internal::kMovesAsBytes<DataValue> = true;
template <>
inline constexpr bool data_internal::kMovesAsBytes<DataDictionary::Entry> = true;

inline void DataDictionary::Set(String key, DataValue value) {
  const std::size_t at = IndexOf(key);
  if (at != data_internal::KeyIndex::kNone) {
    entries_.MutableItems()[at].value = std::move(value);
    return;
  }
  entries_.Append(std::move(key), std::move(value));
  entries_.MutableHeader().Add(entries_.Items(), entries_.Size());
}

inline void DataDictionary::Reserve(std::size_t count) { entries_.Reserve(count); }

inline std::size_t DataDictionary::Size() const noexcept { return entries_.Size(); }

inline std::size_t DataDictionary::IndexOf(std::string_view key) const noexcept {
  if (entries_.Size() == 0) return data_internal::KeyIndex::kNone;
  return entries_.GetHeader().Find(key, entries_.Items(), entries_.Size());
}

inline const DataValue* DataDictionary::Find(std::string_view key) const noexcept {
  const std::size_t at = IndexOf(key);
  return at == data_internal::KeyIndex::kNone ? nullptr : &entries_.Items()[at].value;
}

inline DataValue* DataDictionary::FindMutable(std::string_view key) {
  const std::size_t at = IndexOf(key);
  return at == data_internal::KeyIndex::kNone ? nullptr : &entries_.MutableItems()[at].value;
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
  return entries_.Items();
}
inline const DataDictionary::Entry* DataDictionary::end() const noexcept {
  return begin() + Size();
}

inline void DataArray::Append(DataValue value) { items_.Append(std::move(value)); }
inline void DataArray::Reserve(std::size_t count) { items_.Reserve(count); }
inline std::size_t DataArray::Size() const noexcept { return items_.Size(); }
inline const DataValue& DataArray::operator[](std::size_t index) const noexcept {
  return items_.Items()[index];
}
inline DataValue& DataArray::Mutable(std::size_t index) { return items_.MutableItems()[index]; }
inline const DataValue* DataArray::begin() const noexcept { return items_.Items(); }
inline const DataValue* DataArray::end() const noexcept { return begin() + Size(); }

}  // namespace tarvo
