#pragma once

#if __cplusplus < 202002L
#error "The headers of tarvo need C++20; tarvo/host/tarvo.h is for C and older C++."
#endif

#include <algorithm>
#include <atomic>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace tarvo {

/// The framework's text: an immutable run of bytes, UTF-8 by convention and never checked for it.
///
/// A String is a slice of a shared, reference-counted buffer, so copies and slices cost one atomic
/// increment and no allocation; a slice keeps the whole buffer alive. A literal (`String::Literal`)
/// has no buffer at all. An empty String means "not set" throughout the framework. The bytes are
/// not zero-terminated; NUL is a byte like others.
///
/// Thread safety: distinct String objects may share a buffer across threads.
class String {
 public:
  constexpr String() noexcept = default;

  /// Copies `text`. Throws std::bad_alloc, like every allocating operation here.
  explicit(false) String(std::string_view text) { *this = Copy(text); }
  explicit(false) String(const std::string& text) : String(std::string_view(text)) {}
  explicit(false) String(const char* text) : String(std::string_view(text)) {}

  /// Refers to text that outlives every use (a string literal), without a copy.
  static constexpr String Literal(std::string_view text) noexcept {
    return String(nullptr, text.data(), text.size());
  }

  /// Makes a text of at most `capacity` bytes in place: `fill(char*)` writes the bytes and returns
  /// how many it wrote.
  template <typename Fill>
  static String Build(std::size_t capacity, Fill&& fill) {
    if (capacity == 0) return {};
    Buffer* buffer = Buffer::Create(capacity);
    String owner(buffer, buffer->Text(), 0);
    owner.size_ = std::min<std::size_t>(std::forward<Fill>(fill)(buffer->Text()), capacity);
    return owner;
  }

  String(const String& other) noexcept
      : buffer_(other.buffer_), data_(other.data_), size_(other.size_) {
    if (buffer_ != nullptr) buffer_->references.fetch_add(1, std::memory_order_relaxed);
  }
  String(String&& other) noexcept
      : buffer_(std::exchange(other.buffer_, nullptr)),
        data_(std::exchange(other.data_, "")),
        size_(std::exchange(other.size_, 0)) {}
  String& operator=(String other) noexcept {
    swap(*this, other);
    return *this;
  }
  constexpr ~String() {
    if (buffer_ != nullptr) Buffer::Drop(buffer_);
  }
  friend void swap(String& a, String& b) noexcept {
    std::swap(a.buffer_, b.buffer_);
    std::swap(a.data_, b.data_);
    std::swap(a.size_, b.size_);
  }

  [[nodiscard]] constexpr std::string_view View() const noexcept { return {data_, size_}; }
  // NOLINTNEXTLINE(google-explicit-constructor): a String goes wherever text is asked for.
  constexpr operator std::string_view() const noexcept { return View(); }
  [[nodiscard]] std::string ToStdString() const { return std::string(View()); }

  [[nodiscard]] constexpr std::size_t Size() const noexcept { return size_; }
  [[nodiscard]] constexpr bool IsEmpty() const noexcept { return size_ == 0; }

  /// The bytes from `position` on, at most `count` of them, sharing this text's buffer.
  [[nodiscard]] String Slice(std::size_t position,
                             std::size_t count = std::string_view::npos) const {
    String slice = *this;
    const std::size_t start = std::min(position, size_);
    slice.data_ += start;
    slice.size_ = std::min(count, size_ - start);
    return slice;
  }

  /// This text without the at most `count` bytes that start at `position`.
  [[nodiscard]] String Erased(std::size_t position, std::size_t count) const {
    std::string rest = ToStdString();
    if (position < rest.size()) rest.erase(position, count);
    return String(rest);
  }

  [[nodiscard]] constexpr bool StartsWith(std::string_view text) const noexcept {
    return View().starts_with(text);
  }
  [[nodiscard]] constexpr bool EndsWith(std::string_view text) const noexcept {
    return View().ends_with(text);
  }
  [[nodiscard]] constexpr bool Contains(std::string_view text) const noexcept {
    return View().find(text) != std::string_view::npos;
  }

  /// ASCII letters in lower case; all other bytes as they are, whatever the locale.
  [[nodiscard]] String ToLower() const {
    return Build(size_, [this](char* to) {
      std::transform(data_, data_ + size_, to, LowerCase);
      return size_;
    });
  }
  /// Equality that takes ASCII letters of either case as the same.
  [[nodiscard]] bool EqualsIgnoringCase(std::string_view other) const noexcept {
    return std::ranges::equal(View(), other, {}, LowerCase, LowerCase);
  }
  /// Substring search that takes ASCII letters of either case as the same.
  [[nodiscard]] bool ContainsIgnoringCase(std::string_view text) const noexcept {
    return text.empty() || !std::ranges::search(View(), text, {}, LowerCase, LowerCase).empty();
  }

  friend constexpr bool operator==(const String& a, const String& b) noexcept {
    return a.View() == b.View();
  }
  friend constexpr auto operator<=>(const String& a, const String& b) noexcept {
    return a.View() <=> b.View();
  }
  template <typename Text>
    requires std::convertible_to<const Text&, std::string_view>
  friend constexpr bool operator==(const String& a, const Text& b) noexcept {
    return a.View() == std::string_view(b);
  }

 private:
  friend struct BorderLayout;

  /// Reference count and bytes in one allocation.
  struct Buffer {
    std::atomic<std::size_t> references{1};

    char* Text() noexcept { return reinterpret_cast<char*>(this + 1); }
    static Buffer* Create(std::size_t capacity) {
      return new (::operator new(sizeof(Buffer) + capacity)) Buffer;
    }
    static void Drop(Buffer* buffer) noexcept {
      // Nobody can come to share what has one holder, so the last one need not lock the bus.
      if (buffer->references.load(std::memory_order_acquire) != 1 &&
          buffer->references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
      buffer->~Buffer();
      ::operator delete(buffer);
    }
  };

  constexpr String(Buffer* buffer, const char* data, std::size_t size) noexcept
      : buffer_(buffer), data_(data), size_(size) {}

  static String Copy(std::string_view text) {
    return Build(text.size(), [text](char* to) {
      std::memcpy(to, text.data(), text.size());
      return text.size();
    });
  }

  static constexpr char LowerCase(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }

  Buffer* buffer_ = nullptr;
  const char* data_ = "";
  std::size_t size_ = 0;
};

/// `String::Literal` in short: `"ModuleName"_text`.
constexpr String operator""_text(const char* text, std::size_t size) noexcept {
  return String::Literal({text, size});
}

}  // namespace tarvo

template <>
struct std::hash<tarvo::String> {
  std::size_t operator()(const tarvo::String& text) const noexcept {
    return std::hash<std::string_view>{}(text.View());
  }
};
