// A shared library whose `g_tarvo` is something else than a module's.
extern "C" [[gnu::visibility("default")]] int g_tarvo();

int g_tarvo() { return 42; }
