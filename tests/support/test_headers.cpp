// The program whose precompiled headers all tests use. It does nothing itself.
int main() { return 0; }
