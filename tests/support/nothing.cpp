/// The program that the tests' precompiled headers belong to.
int main() { return 0; }
