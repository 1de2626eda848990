// Throughput of the unit reversal (16-, 32- and 64-bit units) beside memcpy of
// the same buffer, and of the header swap walk.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "cineon/byteswap.h"
#include "cineon/dpx_header.h"

namespace {

std::vector<uint8_t> pattern(size_t bytes) {
    std::vector<uint8_t> v(bytes);
    for (size_t i = 0; i < bytes; ++i) v[i] = uint8_t(i * 131 + 7);
    return v;
}

// In place, as the repair job does it on each chunk it reads.
void BM_ReverseWords(benchmark::State& state) {
    auto buf = pattern(size_t(state.range(0)));
    for (auto _ : state) {
        reverse_words(buf.data(), buf.size());
        benchmark::DoNotOptimize(buf.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

// Units of 2, 4 and 8 bytes (16-bit and filled 12-bit data, 10-bit words, 64-bit data), in place.
void BM_ReverseUnits(benchmark::State& state) {
    auto buf = pattern(1 << 20);
    for (auto _ : state) {
        reverse_units(buf.data(), buf.size(), uint32_t(state.range(0)));
        benchmark::DoNotOptimize(buf.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(buf.size()));
}

// The floor: moving the same bytes without touching them.
void BM_Memcpy(benchmark::State& state) {
    auto src = pattern(size_t(state.range(0)));
    std::vector<uint8_t> dst(src.size());
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), src.size());
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

// One DPX header brought from the other byte order, as every big-endian file needs.
void BM_DpxHeaderSwap(benchmark::State& state) {
    SMPTE268M_Header_t header;
    auto bytes = pattern(sizeof header);
    std::memcpy(&header, bytes.data(), sizeof header);
    for (auto _ : state) {
        dpx_swap_header(header);
        benchmark::DoNotOptimize(&header);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
}

// 1 MiB is the repair job's chunk; 64 KiB fits the L2 cache; 12.7 MB is a 2K frame.
BENCHMARK(BM_ReverseWords)->Arg(64 << 10)->Arg(1 << 20)->Arg(12746752);
BENCHMARK(BM_ReverseUnits)->Arg(2)->Arg(4)->Arg(8);
BENCHMARK(BM_Memcpy)->Arg(64 << 10)->Arg(1 << 20)->Arg(12746752);
BENCHMARK(BM_DpxHeaderSwap);

}  // namespace
