#pragma once

namespace scene {

/// Updates a tree of `depth` levels and calls `leaf` at its innermost node, `depth` calls deep.
[[gnu::visibility("default")]] void Update(int depth, void (*leaf)(void*), void* argument);

/// The same in a thread that the plug-in starts with the C library's own means, and waits for.
[[gnu::visibility("default")]] void UpdateInThread(int depth, void (*leaf)(void*), void* argument);

}  // namespace scene
