#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <utility>

namespace tarvo {

/// Base of every interface that crosses the border between framework and module: an abstract class
/// with a reference count. Held through Ref<T>, never deleted by hand.
///
/// Plain virtual functions and standard types may stand in interfaces: before any call the host
/// compares the build tags of both sides, which hold what must agree for that, the C++ ABI, the
/// standard library and a hash of all layouts (docs/abi.md). `dynamic_cast` must not be used across
/// the border: modules hide their type information.
class Object {
 public:
  virtual void Retain() noexcept = 0;
  virtual void Release() noexcept = 0;

 protected:
  Object() = default;
  Object(const Object&) = default;
  Object& operator=(const Object&) = default;
  ~Object() = default;
};

/// A counted reference to an Object, or null.
template <typename T>
class Ref {
 public:
  constexpr Ref() noexcept = default;
  constexpr explicit(false) Ref(std::nullptr_t) noexcept {}
  /// Takes over a reference that the caller holds (the one an object is born with).
  static Ref Adopt(T* object) noexcept {
    Ref ref;
    ref.object_ = object;
    return ref;
  }
  /// Adds a reference of its own.
  static Ref Share(T* object) noexcept {
    if (object != nullptr) object->Retain();
    return Adopt(object);
  }

  Ref(const Ref& other) noexcept : Ref(Share(other.object_)) {}
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  /// From a reference to a class derived from T.
  template <std::derived_from<T> U>
  explicit(false) Ref(Ref<U> other) noexcept : object_(other.Detach()) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ref() {
    if (object_ != nullptr) object_->Release();
  }

  /// Gives the reference to the caller, who must release it.
  [[nodiscard]] T* Detach() noexcept { return std::exchange(object_, nullptr); }

  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  [[nodiscard]] T* Get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.object_ == b.object_; }

 private:
  friend struct BorderLayout;
  T* object_ = nullptr;
};

/// The counting half of an Object: `class Impl final : public Counted<Interface>`. Born with one
/// reference; `Make` wraps it.
template <typename Interface>
class Counted : public Interface {
 public:
  void Retain() noexcept final { references_.fetch_add(1, std::memory_order_relaxed); }
  void Release() noexcept final {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 protected:
  Counted() = default;
  virtual ~Counted() = default;

 private:
  std::atomic<std::uint32_t> references_{1};
};

/// Makes a counted object and returns the reference it was born with.
template <typename T, typename... Arguments>
Ref<T> Make(Arguments&&... arguments) {
  return Ref<T>::Adopt(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace tarvo
