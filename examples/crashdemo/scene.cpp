#include "scene.h"

namespace scene {
namespace {

volatile int g_updatedNodes = 0;

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

}  // namespace scene
