#include "cineon/byteswap.h"

#include <cstring>

namespace {

// Units handled per block; a fixed trip count lets the compiler turn the
// inner loop into vector byte shuffles.
constexpr uint64_t block_units = 16;

inline uint16_t reversed(uint16_t w) { return __builtin_bswap16(w); }
inline uint32_t reversed(uint32_t w) { return __builtin_bswap32(w); }
inline uint64_t reversed(uint64_t w) { return __builtin_bswap64(w); }

template <class Word>
inline void reverse_unit(unsigned char* p) {
    Word w;
    std::memcpy(&w, p, sizeof w);
    w = reversed(w);
    std::memcpy(p, &w, sizeof w);
}

template <class Word>
inline void reverse_all(unsigned char* p, uint64_t bytes) {
    const uint64_t units = bytes / sizeof(Word);
    uint64_t i = 0;
    for (; i + block_units <= units; i += block_units)
        for (uint64_t k = 0; k < block_units; ++k) reverse_unit<Word>(p + sizeof(Word) * (i + k));
    for (; i < units; ++i) reverse_unit<Word>(p + sizeof(Word) * i);
}

}  // namespace

// Baseline x86-64 has no byte shuffle, so the vector forms are built for the
// extensions that do and picked at load time.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define TARVEX_VECTOR_CLONES __attribute__((target_clones("default", "ssse3", "avx2")))
#else
#define TARVEX_VECTOR_CLONES
#endif

TARVEX_VECTOR_CLONES void reverse_words(void* buf, uint64_t bytes) {
    reverse_all<uint32_t>(static_cast<unsigned char*>(buf), bytes);
}

TARVEX_VECTOR_CLONES void reverse_units(void* buf, uint64_t bytes, uint32_t unit) {
    unsigned char* p = static_cast<unsigned char*>(buf);
    if (unit == 2) reverse_all<uint16_t>(p, bytes);
    else if (unit == 4) reverse_all<uint32_t>(p, bytes);
    else if (unit == 8) reverse_all<uint64_t>(p, bytes);
}
