#include "crash_guard/thread_start.h"

#include <dlfcn.h>
#include <pthread.h>
#include <threads.h>

#include <atomic>

#include "crash_guard/alternate_stack.h"

namespace {

using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
using CreateC11 = int (*)(thrd_t*, thrd_start_t, void*);

std::atomic<bool> g_isGuarding{false};
std::atomic<void*> g_create{nullptr};
std::atomic<void*> g_createC11{nullptr};

/// The definition of `name` behind this library's: the C library's, or that of another library that
/// stands in between for its own ends.
void* Next(std::atomic<void*>& known, const char* name) {
  void* function = known.load(std::memory_order_acquire);
  if (function == nullptr) {
    function = dlsym(RTLD_NEXT, name);
    known.store(function, std::memory_order_release);
  }
  return function;
}

/// A thread's own beginning. It travels to the thread in the first bytes of its alternate stack.
template <typename Answer>
struct Start {
  Answer (*routine)(void*);
  void* argument;

  /// Not noexcept: the cancellation of a thread unwinds it.
  static Answer Run(void* stack) {
    const Start start = *static_cast<const Start*>(stack);
    tarvo::UseAlternateStack(stack);
    return start.routine(start.argument);
  }
};

/// Calls `create` with a routine and an argument that lead to `routine` and `argument`.
template <typename Answer, typename CreateThread>
int CreateWithStack(Answer (*routine)(void*), void* argument, const CreateThread& create) {
  void* stack = g_isGuarding.load(std::memory_order_relaxed) ? tarvo::MapAlternateStack() : nullptr;
  // A thread without an alternate stack is better than none.
  if (stack == nullptr) return create(routine, argument);
  *static_cast<Start<Answer>*>(stack) = {routine, argument};
  const int failure = create(Start<Answer>::Run, stack);
  if (failure != 0) tarvo::UnmapAlternateStack(stack);
  return failure;
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] int pthread_create(pthread_t* thread,
                                                  const pthread_attr_t* attributes,
                                                  void* (*routine)(void*), void* argument) {
  const auto next = reinterpret_cast<Create>(Next(g_create, "pthread_create"));
  return CreateWithStack(routine, argument, [&](void* (*start)(void*), void* with) {
    return next(thread, attributes, start, with);
  });
}

// The C library's own does not call pthread_create (glibc 2.36 nptl/thrd_create.c).
[[gnu::visibility("default")]] int thrd_create(thrd_t* thread, thrd_start_t routine,
                                               void* argument) {
  const auto next = reinterpret_cast<CreateC11>(Next(g_createC11, "thrd_create"));
  return CreateWithStack(routine, argument,
                         [&](thrd_start_t start, void* with) { return next(thread, start, with); });
}

}  // extern "C"

namespace tarvo {
namespace {

constexpr SourceFile kThreadStart{"tarvo/source/crash_guard/thread_start"};

/// Whether a call to pthread_create from anywhere arrives here, perhaps through others.
bool ComesFirst() {
  void* next = Next(g_create, "pthread_create");
  return next != nullptr && dlsym(RTLD_DEFAULT, "pthread_create") != next;
}

}  // namespace

Result<void> GuardThreadStarts() {
  if (!PrepareAlternateStacks())
    return Error::IllegalState(kThreadStart.Here(),
                               "Threads get no alternate stack: the process has no free key for "
                               "thread-specific data.");
  if (void* own = MapAlternateStack(); own != nullptr) UseAlternateStack(own);
  if (!ComesFirst()) {
    return Error::IllegalState(kThreadStart.Here(),
                               "New threads get no alternate stack: the host library was loaded "
                               "behind the C library; link the program with it, or preload it.");
  }
  g_isGuarding.store(true);
  return {};
}

void StopGuardingThreadStarts() { g_isGuarding.store(false); }

}  // namespace tarvo
