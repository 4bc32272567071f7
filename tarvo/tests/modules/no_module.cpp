// A shared library that is no module.
extern "C" [[gnu::visibility("default")]] int Answer();

int Answer() { return 42; }
