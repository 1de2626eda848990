// tarvex: rewrites 10-bit DPX files in the byte order of the running machine.
#include "driver/entry.h"

int main(int argc, char** argv) { return tarvex_main(argc, argv); }
