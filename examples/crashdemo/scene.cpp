#include "scene.h"

#include <pthread.h>

namespace scene {
namespace {

volatile int g_updatedNodes = 0;

struct UpdateCall {
  int depth;
  void (*leaf)(void*);
  void* argument;
};

}  // namespace

// Not inlined into itself, and with work after the call, so that every level has its frame.
[[gnu::noinline]] void Update(int depth, void (*leaf)(void*), void* argument) {
  if (depth <= 1) {
    leaf(argument);
  } else {
    Update(depth - 1, leaf, argument);
  }
  g_updatedNodes = g_updatedNodes + 1;
}

void UpdateInThread(int depth, void (*leaf)(void*), void* argument) {
  UpdateCall update = {depth, leaf, argument};
  pthread_t thread;
  const auto run = [](void* of) -> void* {
    const auto& own = *static_cast<UpdateCall*>(of);
    Update(own.depth, own.leaf, own.argument);
    return nullptr;
  };
  if (pthread_create(&thread, nullptr, run, &update) == 0) pthread_join(thread, nullptr);
}

}  // namespace scene
