// A program that no library can be preloaded into.
int main() { return 0; }
