// SPDX-License-Identifier: MIT
//
// x86-64 with AMX: tiles of 16 rows of 64 bytes and their product, beside AVX-512.
//
// tdpbssd multiplies 16 rows of 64 signed bytes by 64 rows of 16 and adds to 16 x 16 sums of 32
// bits, wrapping: eight times what the vector ports do, on a unit of its own. So what costs is the
// rest: storing the sums (16 cycles a tile, of which the vector ports lose 13), requantising them
// (12) and packing pixels (8 for 256 bytes).
//
// The operating system gives a process the tiles when it asks for them; see routines.cpp.
#include <cstring>

#include "compute_a/routines.h"
#include "compute_a/simd/avx512_lanes.h"
#include "compute_a/simd/avx512vnni.h"

namespace orvo {
namespace {

// ---- Tiles -------------------------------------------------------------------------------------
//
// Statements of assembly: GCC 12's intrinsics do not tell the compiler what memory they read. No
// register is listed as changed, since nothing else uses tiles and the compiler does not know them.

// The shape of each tile register, as ldtilecfg reads it.
struct alignas(64) TileShapes {
    uint8_t palette = 1;
    uint8_t startRow = 0;
    uint8_t reserved[14] = {};
    uint16_t rowBytes[16] = {};
    uint8_t rows[16] = {};

    void Set(size_t tile, size_t tileRows, size_t bytes) {
        rows[tile] = static_cast<uint8_t>(tileRows);
        rowBytes[tile] = static_cast<uint16_t>(bytes);
    }
};

// In effect as long as it lives. Leaving it on would cost the process's every context switch.
class Tiles {
  public:
    explicit Tiles(const TileShapes& shapes) { __asm__ volatile("ldtilecfg %0" ::"m"(shapes)); }
    ~Tiles() { __asm__ volatile("tilerelease"); }
    Tiles(const Tiles&) = delete;
    Tiles& operator=(const Tiles&) = delete;
};

template <int kTile>
inline void LoadTile(const void* from, size_t stride) {
    __asm__ volatile("tileloadd (%0,%1,1), %%tmm%c2" ::"r"(from), "r"(stride), "i"(kTile)
                     : "memory");
}
template <int kTile>
inline void StoreTile(void* to, size_t stride) {
    __asm__ volatile("tilestored %%tmm%c2, (%0,%1,1)" ::"r"(to), "r"(stride), "i"(kTile)
                     : "memory");
}
template <int kSums, int kA, int kB>
inline void MultiplyTiles() {
    __asm__ volatile("tdpbssd %%tmm%c2, %%tmm%c1, %%tmm%c0" ::"i"(kSums), "i"(kA), "i"(kB));
}

// ---- Matrix product ----------------------------------------------------------------------------
//
// A: up to 16 channels' weights for 64 rows. B: 16 pixels, four rows' values of each side by side.
// The sums of four B's, a quad of 64 pixels, are stored side by side, so that each channel's are
// four vectors, requantised to one.
//
// Registers: 0 to 3 the sums, 4 and 5 the weights, 6 and 7 the pixels. They are not renamed, so the
// sums of two B's are stored while those of the others are made.
//
// Exact: products are of signed bytes and sums wrap at 32 bits; what is padded is zero.

constexpr size_t kTileRows = 16;
constexpr size_t kTileBytes = 1024;
constexpr size_t kVectorPixels = 16;
constexpr size_t kQuadPixels = 64;
constexpr size_t kMostChunks = 4;
constexpr size_t kMemoryBytes =
    36 * 1024; // within the first cache, and for 64 channels of 256 rows

// How a product is cut into tiles. Rows are taken in chunks of 64, or all at once if there are
// fewer; channels in tiles of equal height.
struct Cut {
    size_t chunks;
    size_t chunkSteps; // of four rows
    size_t tileChannels;

    explicit Cut(const MatrixProduct& p) {
        const size_t steps = (p.inner + 3) / 4;
        chunks = (steps + kTileRows - 1) / kTileRows;
        chunkSteps = chunks > 1 ? kTileRows : steps;
        const size_t tiles = (p.channels + kTileRows - 1) / kTileRows;
        tileChannels = (p.channels + tiles - 1) / tiles;
        tileChannels = (tileChannels + 3) / 4 * 4;
    }
    size_t weightBytes() const { return chunks * kTileBytes; } // of a tile's channels
    size_t stepBytes(size_t pixels) const { return 4 * pixels; }
    size_t pixelBytes() const { return chunks * chunkSteps * 4 * kQuadPixels; }
};

// The weights of some channels as the tiles read them, and the sums that they start from.
struct Operands {
    int8_t* weights; // by tile of channels, chunk, channel: 64 rows' weights
    int32_t* start;  // by channel: 16 times the bias
    int8_t* pixels;  // by step, pixel: four rows' values
};

// Four channels: 64 bytes hold 16 rows of them, side by side. `to` is the first channel's.
void PackGroup(const MatrixProduct& p, const int8_t* weights, int8_t* to) {
    alignas(64) static constexpr uint8_t kByChannel[64] = {
        0,  4,  8,  12, 16, 20, 24, 28, 32, 36, 40, 44, 48, 52, 56, 60, 1,  5,  9,  13, 17, 21,
        25, 29, 33, 37, 41, 45, 49, 53, 57, 61, 2,  6,  10, 14, 18, 22, 26, 30, 34, 38, 42, 46,
        50, 54, 58, 62, 3,  7,  11, 15, 19, 23, 27, 31, 35, 39, 43, 47, 51, 55, 59, 63};
    const __m512i byChannel = _mm512_load_si512(kByChannel);
    for (size_t k = 0; k < (p.inner + 63) / 64 * 64; k += 16) {
        const __mmask64 inside = k < p.inner ? FirstBytes(4 * (p.inner - k)) : 0;
        const __m512i bytes =
            _mm512_permutexvar_epi8(byChannel, _mm512_maskz_loadu_epi8(inside, weights + 4 * k));
        int8_t* const at = to + k / 64 * kTileBytes + k % 64;
        _mm_store_si128(reinterpret_cast<__m128i*>(at), _mm512_castsi512_si128(bytes));
        _mm_store_si128(reinterpret_cast<__m128i*>(at + 64), _mm512_extracti32x4_epi32(bytes, 1));
        _mm_store_si128(reinterpret_cast<__m128i*>(at + 128), _mm512_extracti32x4_epi32(bytes, 2));
        _mm_store_si128(reinterpret_cast<__m128i*>(at + 192), _mm512_extracti32x4_epi32(bytes, 3));
    }
}

// A leftover channel's weights stand in row order.
void PackLeftover(const MatrixProduct& p, const int8_t* weights, int8_t* to) {
    for (size_t k = 0; k < p.inner; k += 64, to += kTileBytes) {
        _mm512_store_si512(to, _mm512_maskz_loadu_epi8(FirstBytes(p.inner - k), weights + k));
    }
}

void PackChannels(const MatrixProduct& p, const Cut& cut, size_t firstChannel, size_t channels,
                  const Operands& to) {
    size_t c = 0;
    const int8_t* weights = p.weights + firstChannel / 4 * p.groupBytes;
    while (c < channels) {
        int8_t* const at =
            to.weights + c / cut.tileChannels * cut.weightBytes() + c % cut.tileChannels * 64;
        const bool whole = firstChannel + c + 4 <= p.channels;
        if (whole) {
            PackGroup(p, weights, at);
        } else {
            PackLeftover(p, weights, at);
        }
        weights += p.groupBytes;
        c += whole ? 4 : 1;
    }
    for (c = 0; c < channels; ++c) {
        _mm512_store_si512(to.start + 16 * c, _mm512_set1_epi32(p.bias[firstChannel + c]));
    }
}

// Four rows of up to 64 pixels become a step of four B's, in the order that unpacking leaves them.
void PackQuad(const MatrixProduct& p, const Cut& cut, size_t pixel, size_t pixels, int8_t* to) {
    const __mmask64 inside = FirstBytes(pixels);
    const __m512i zero = _mm512_setzero_si512();
    for (size_t k = 0; k < 4 * cut.chunks * cut.chunkSteps; k += 4, to += 256) {
        const int8_t* at = p.rows + k * p.rowPitch + pixel;
        __m512i row[4];
        for (size_t i = 0; i < 4; ++i) {
            row[i] = k + i < p.inner ? LoadBytes(inside, at + i * p.rowPitch) : zero;
        }
        const __m512i lo01 = _mm512_unpacklo_epi8(row[0], row[1]);
        const __m512i hi01 = _mm512_unpackhi_epi8(row[0], row[1]);
        const __m512i lo23 = _mm512_unpacklo_epi8(row[2], row[3]);
        const __m512i hi23 = _mm512_unpackhi_epi8(row[2], row[3]);
        _mm512_store_si512(to, _mm512_unpacklo_epi16(lo01, lo23));
        _mm512_store_si512(to + 64, _mm512_unpackhi_epi16(lo01, lo23));
        _mm512_store_si512(to + 128, _mm512_unpacklo_epi16(hi01, hi23));
        _mm512_store_si512(to + 192, _mm512_unpackhi_epi16(hi01, hi23));
    }
}

// Up to 16 pixels become a step of one B, in their order.
void PackVector(const MatrixProduct& p, const Cut& cut, size_t pixel, size_t pixels, int8_t* to) {
    const __mmask16 inside = FirstBytes16(pixels);
    for (size_t k = 0; k < 4 * cut.chunks * cut.chunkSteps; k += 4, to += 64) {
        const int8_t* at = p.rows + k * p.rowPitch + pixel;
        __m128i row[4];
        for (size_t i = 0; i < 4; ++i) {
            row[i] = k + i < p.inner ? _mm_maskz_loadu_epi8(inside, at + i * p.rowPitch)
                                     : _mm_setzero_si128();
        }
        _mm512_store_si512(to, InterleaveRows(row));
    }
}

using Sums = int32_t[kTileRows][kQuadPixels];

// The sums of two B's, from the weights' and the pixels' first chunk on.
template <int kFirst>
inline void SumPair(const Cut& cut, const int8_t* weights, const int32_t* start,
                    const int8_t* pixels) {
    LoadTile<kFirst>(start, 64);
    LoadTile<kFirst + 1>(start, 64);
    for (size_t i = 0; i < cut.chunks; ++i) {
        LoadTile<4>(weights + i * kTileBytes, 64);
        LoadTile<6>(pixels + i * kTileRows * 256 + kFirst * 64, 256);
        MultiplyTiles<kFirst, 4, 6>();
        LoadTile<7>(pixels + i * kTileRows * 256 + (kFirst + 1) * 64, 256);
        MultiplyTiles<kFirst + 1, 4, 7>();
    }
}

template <int kFirst>
inline void StorePair(Sums& sums) {
    StoreTile<kFirst>(&sums[0][kFirst * 16], sizeof sums[0]);
    StoreTile<kFirst + 1>(&sums[0][(kFirst + 1) * 16], sizeof sums[0]);
}

struct QuadOutput {
    int8_t* dst;
    size_t planePitch;
    size_t channels;
    __mmask64 inside;
    uint32_t shift;
};

template <bool ShiftWords>
void RequantiseQuad(const Sums& sums, const QuadOutput& out) {
    const __m512i shift = ShiftCounts<ShiftWords>(out.shift);
    for (size_t c = 0; c < out.channels; ++c) {
        const __m512i plane[4] = {_mm512_load_si512(sums[c]), _mm512_load_si512(sums[c] + 16),
                                  _mm512_load_si512(sums[c] + 32), _mm512_load_si512(sums[c] + 48)};
        StoreBytes(out.inside, Requantise<ShiftWords>(plane, shift), out.dst + c * out.planePitch);
    }
}

void Finish(const Sums& sums, const QuadOutput& out) {
    if (out.shift <= 8) {
        RequantiseQuad<true>(sums, out);
    } else {
        RequantiseQuad<false>(sums, out);
    }
}

// Some channels by a quad. A tile's last sums are stored and all of them requantised while the
// next one's first are made.
void MultiplyQuad(const Cut& cut, const Operands& operands, size_t channels, QuadOutput out) {
    alignas(64) Sums sums;
    const int8_t* weights = operands.weights;
    const int32_t* start = operands.start;
    const size_t tilePitch = cut.tileChannels * out.planePitch;
    out.channels = 0;
    for (size_t c = 0; c < channels; c += cut.tileChannels) {
        SumPair<0>(cut, weights, start, operands.pixels);
        if (c > 0) {
            StorePair<2>(sums);
            Finish(sums, out);
            out.dst += tilePitch;
        }
        SumPair<2>(cut, weights, start, operands.pixels);
        StorePair<0>(sums);
        out.channels = channels - c < cut.tileChannels ? channels - c : cut.tileChannels;
        weights += cut.weightBytes();
        start += 16 * cut.tileChannels;
    }
    StorePair<2>(sums);
    Finish(sums, out);
}

void MultiplyVector(const MatrixProduct& p, const Cut& cut, const Operands& operands,
                    size_t channels, int8_t* dst, size_t pixels) {
    alignas(64) int32_t sums[kTileRows][kVectorPixels];
    const int8_t* weights = operands.weights;
    const int32_t* start = operands.start;
    for (size_t c = 0; c < channels; c += cut.tileChannels) {
        LoadTile<0>(start, 64);
        for (size_t i = 0; i < cut.chunks; ++i) {
            LoadTile<4>(weights + i * kTileBytes, 64);
            LoadTile<6>(operands.pixels + i * kTileBytes, 64);
            MultiplyTiles<0, 4, 6>();
        }
        StoreTile<0>(sums, sizeof sums[0]);
        const size_t here = channels - c < cut.tileChannels ? channels - c : cut.tileChannels;
        for (size_t group = 0; group < here; group += 4) {
            const __m512i planes[4] = {
                _mm512_load_si512(sums[group]), _mm512_load_si512(sums[group + 1]),
                _mm512_load_si512(sums[group + 2]), _mm512_load_si512(sums[group + 3])};
            StoreFourPlanes(RequantiseBy(planes, p.shift), dst + (c + group) * p.planePitch,
                            p.planePitch, here - group, FirstBytes16(pixels));
        }
        weights += cut.weightBytes();
        start += 16 * cut.tileChannels;
    }
}

TileShapes ShapesFor(const Cut& cut) {
    TileShapes shapes;
    for (size_t tile = 0; tile < 4; ++tile) {
        shapes.Set(tile, cut.tileChannels, 64);
    }
    shapes.Set(4, cut.tileChannels, 4 * cut.chunkSteps);
    shapes.Set(5, cut.tileChannels, 4 * cut.chunkSteps);
    shapes.Set(6, cut.chunkSteps, 64);
    shapes.Set(7, cut.chunkSteps, 64);
    return shapes;
}

void Multiply(const MatrixProduct& p) {
    if (p.inner == 0 || p.inner > 64 * kMostChunks || p.channels == 0) {
        avx512vnni::Multiply(p); // longer than any layer's
        return;
    }
    const Cut cut(p);
    const Tiles tiles(ShapesFor(cut));
    alignas(64) int8_t memory[kMemoryBytes];
    const size_t startBytes = cut.tileChannels * 64;
    const size_t slice = (kMemoryBytes - cut.pixelBytes()) / (cut.weightBytes() + startBytes);
    const size_t sliceChannels = slice * cut.tileChannels;
    const Operands operands{
        memory + cut.pixelBytes(),
        reinterpret_cast<int32_t*>(memory + cut.pixelBytes() + slice * cut.weightBytes()), memory};
    for (size_t first = 0; first < p.channels; first += sliceChannels) {
        const size_t left = p.channels - first;
        const size_t channels = left < sliceChannels ? left : sliceChannels;
        PackChannels(p, cut, first, channels, operands);
        int8_t* const dst = p.dst + first * p.planePitch;
        size_t pixel = 0;
        for (; pixel + kVectorPixels < p.pixels; pixel += kQuadPixels) {
            PackQuad(p, cut, pixel, p.pixels - pixel, operands.pixels);
            MultiplyQuad(cut, operands, channels,
                         {dst + pixel, p.planePitch, 0, FirstBytes(p.pixels - pixel), p.shift});
        }
        if (pixel < p.pixels) {
            PackVector(p, cut, pixel, p.pixels - pixel, operands.pixels);
            MultiplyVector(p, cut, operands, channels, dst + pixel, p.pixels - pixel);
        }
    }
}

} // namespace

const Routines kAmxRoutines{"amx",
                            Multiply,
                            avx512vnni::Depthwise,
                            avx512vnni::Dot,
                            avx512vnni::MaxPoolStride1,
                            avx512vnni::MaxPoolRows,
                            avx512vnni::SampleRow,
                            avx512vnni::Rectify,
                            avx512vnni::FlipSigns,
                            avx512vnni::Add};

} // namespace orvo
