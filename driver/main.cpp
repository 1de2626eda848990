// tarvex: rewrites 10-bit DPX files in the byte order of the running machine.
#include <cstdio>

int main() {
    std::puts("tarvex v3.1 beta 1");
    return 0;
}
