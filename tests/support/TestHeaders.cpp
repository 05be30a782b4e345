// The program whose precompiled headers all test programs share.
int main() {}
