#pragma once

#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "tarvo/error.h"

namespace tarvo {

/// The outcome of an operation that can fail: a value or an Error. Made from either without
/// ceremony, and must be looked at:
///
///     Result<Url> url = Url::FromText(text);
///     if (!url) return url.GetError();
///     Use(*url);
template <typename T>
class [[nodiscard]] Result {
 public:
  using Value = T;

  explicit(false) Result(T value) : outcome_(std::in_place_index<0>, std::move(value)) {}
  explicit(false) Result(Error error) : outcome_(std::in_place_index<1>, std::move(error)) {}
  /// From anything that makes a T in one implicit step (a String from a literal).
  template <typename From>
    requires(std::is_convertible_v<From &&, T> && !std::is_same_v<std::decay_t<From>, T> &&
             !std::is_same_v<std::decay_t<From>, Error> &&
             !std::is_same_v<std::decay_t<From>, Result>)
  explicit(false) Result(From&& from)
      : outcome_(std::in_place_index<0>, std::forward<From>(from)) {}

  explicit operator bool() const noexcept { return outcome_.index() == 0; }

  /// The value. Undefined when the operation failed.
  T& operator*() & noexcept { return *std::get_if<0>(&outcome_); }
  const T& operator*() const& noexcept { return *std::get_if<0>(&outcome_); }
  T&& operator*() && noexcept { return std::move(*std::get_if<0>(&outcome_)); }
  T* operator->() noexcept { return std::get_if<0>(&outcome_); }
  const T* operator->() const noexcept { return std::get_if<0>(&outcome_); }

  /// The error. Undefined when the operation succeeded.
  [[nodiscard]] const Error& GetError() const noexcept { return *std::get_if<1>(&outcome_); }

  [[nodiscard]] T ValueOr(T fallback) const {
    if (*this) return **this;
    return fallback;
  }

 private:
  friend struct BorderLayout;
  std::variant<T, Error> outcome_;
};

/// The outcome of an operation that gives nothing but may fail. `Result<void>{}` is success.
template <>
class [[nodiscard]] Result<void> {
 public:
  using Value = void;

  Result() noexcept = default;
  explicit(false) Result(Error error) : error_(std::move(error)) {}

  explicit operator bool() const noexcept { return !error_.has_value(); }
  /// The error. Undefined when the operation succeeded.
  [[nodiscard]] const Error& GetError() const noexcept { return *error_; }

 private:
  friend struct BorderLayout;
  std::optional<Error> error_;
};

}  // namespace tarvo

#include "tarvo/internal/url_conversion.h"  // IWYU pragma: export
