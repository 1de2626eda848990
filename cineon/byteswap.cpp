#include "cineon/byteswap.h"

#include <cstring>

namespace {

// Words handled per block; a fixed trip count lets the compiler turn the
// inner loop into vector byte shuffles.
constexpr uint64_t block_words = 16;

inline void reverse_word(unsigned char* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    w = __builtin_bswap32(w);
    std::memcpy(p, &w, 4);
}

}  // namespace

// Baseline x86-64 has no byte shuffle, so the vector forms are built for the
// extensions that do and picked at load time.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("default", "ssse3", "avx2")))
#endif
void reverse_words(void* buf, uint64_t bytes) {
    unsigned char* p = static_cast<unsigned char*>(buf);
    const uint64_t words = bytes / 4;
    uint64_t i = 0;
    for (; i + block_words <= words; i += block_words)
        for (uint64_t k = 0; k < block_words; ++k) reverse_word(p + 4 * (i + k));
    for (; i < words; ++i) reverse_word(p + 4 * i);
}
