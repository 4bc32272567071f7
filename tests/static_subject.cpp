// A program that no library can be preloaded into, by how it is linked. C as well as C++.
int main(void) { return 0; }
