// A library that a program can have thousands of.
extern "C" int SmallFunction();
int SmallFunction() { return 1; }
