// A plug-in whose static constructor crashes, while the loader's lock is held.

namespace {

struct Registry {
  Registry();
  volatile int* volatile entries = nullptr;
};

[[gnu::noinline]] Registry::Registry() { *entries = 1; }

Registry g_registry;

}  // namespace
