#pragma once

#include <type_traits>

namespace tarvo {

namespace internal {

template <typename T>
long AsWord(T argument) {
  if constexpr (std::is_null_pointer_v<T>) {
    return 0;
  } else if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<long>(argument);
  } else {
    return static_cast<long>(argument);
  }
}

inline long SystemCall(long number, long a, long b, long c, long d, long e, long f) {
  long result;
  register long fourth asm("r10") = d;
  register long fifth asm("r8") = e;
  register long sixth asm("r9") = f;
  asm volatile("syscall"
               : "=a"(result)
               : "a"(number), "D"(a), "S"(b), "d"(c), "r"(fourth), "r"(fifth), "r"(sixth)
               : "rcx", "r11", "memory");
  return result;
}

}  // namespace internal

/// A system call without the C library, which would write errno: a process that shares the memory
/// of another shares that too. The result, or the negated error number. Any context, tracer.
template <typename A = int, typename B = int, typename C = int, typename D = int, typename E = int,
          typename F = int>
long RawSystemCall(long number, A a = 0, B b = 0, C c = 0, D d = 0, E e = 0, F f = 0) {
  return internal::SystemCall(number, internal::AsWord(a), internal::AsWord(b), internal::AsWord(c),
                              internal::AsWord(d), internal::AsWord(e), internal::AsWord(f));
}

}  // namespace tarvo
