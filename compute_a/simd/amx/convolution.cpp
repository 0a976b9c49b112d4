// SPDX-License-Identifier: MIT
//
// Convolution 3 x 3 of few planes with AMX.
//
// Without a matrix of the inputs: a B's column holds four neighbours in each of three rows of each
// plane, which is what two outputs side by side see. So A has a channel's weights twice, a byte
// apart, and there are two B's for a quad: from the column before an output on, and from the column
// after it on. Both are loaded from the planes as they lie, row after row; what is outside the
// plane is masked.
//
// Exact: as above; the products of the fourth neighbour are with zeros. Measured on the stems: 1.7
// times as fast as the AVX-512 path, 1.9 times as the product of the expanded input by tiles.
#include "compute_a/routines.h"
#include "compute_a/simd/amx/routines.h"
#include "compute_a/simd/amx/tiles.h"

namespace orvo {
namespace {

constexpr size_t kMostTaps = 16 * 4; // of which each three take four bytes
constexpr size_t kMostStemChannels = 32;

struct StemOperands {
    alignas(64) int8_t weights[kMostStemChannels / kTileRows][2][kTileBytes];
    alignas(64) int32_t start[kMostStemChannels][kVectorPixels];
    alignas(64) int8_t pixels[2][2][kTileRows][kQuadPixels]; // of two quads, their two B's
};

// Filter rows of three weights become four bytes each, from byte `from` on; the other is zero.
struct FilterSpread {
    alignas(64) uint8_t order[64];
    uint64_t present;

    explicit constexpr FilterSpread(size_t from) : order{}, present(0) {
        for (size_t i = 0; i < 64; ++i) {
            const size_t tap = i % 4 - from;
            if (tap < 3) {
                order[i] = static_cast<uint8_t>(i / 4 * 3 + tap);
                present |= uint64_t{1} << i;
            }
        }
    }
    __m512i operator()(__m512i weights) const {
        return _mm512_maskz_permutexvar_epi8(present, _mm512_load_si512(order), weights);
    }
};

void PackStem(const Convolution3x3& conv, StemOperands& to) {
    static constexpr FilterSpread kSpreads[2] = {FilterSpread(0), FilterSpread(1)};
    MatrixProduct product{};
    product.inner = 9 * conv.srcChannels;
    for (size_t c = 0; c < conv.channels; c += 4) {
        alignas(64) int8_t rows[4][64];
        PackGroup(product, conv.weights + c * product.inner, rows[0]);
        for (size_t i = 0; i < 4; ++i) {
            const size_t row = (c + i) % kTileRows * 64;
            auto& tiles = to.weights[c / kTileRows];
            const __m512i weights = _mm512_load_si512(rows[i]);
            _mm512_store_si512(tiles[0] + row, kSpreads[0](weights));
            _mm512_store_si512(tiles[1] + row, kSpreads[1](weights));
            _mm512_store_si512(to.start[c + i], _mm512_set1_epi32(conv.bias[c + i]));
        }
    }
}

// The bytes of a quad from `pixel` on that begin a row, or if `last` that end one.
__mmask64 RowEdges(const Convolution3x3& conv, size_t pixel, bool last) {
    __mmask64 edges = 0;
    for (size_t i = conv.width - pixel % conv.width - last; i < 64; i += conv.width) {
        edges |= __mmask64{1} << i;
    }
    return edges | (pixel % conv.width == 0 && !last);
}

void PackStemQuad(const Convolution3x3& conv, size_t pixel,
                  int8_t (&to)[2][kTileRows][kQuadPixels]) {
    const size_t count = conv.width * conv.height;
    const __mmask64 columns[2] = {~RowEdges(conv, pixel, false), ~RowEdges(conv, pixel, true)};
    __mmask64 rows[3] = {FirstBytes(64), FirstBytes(64), FirstBytes(64)};
    if (pixel < conv.width) {
        rows[0] = ~FirstBytes(conv.width - pixel);
    }
    if (pixel + 64 + conv.width > count) {
        rows[2] = pixel + conv.width < count ? FirstBytes(count - conv.width - pixel) : 0;
    }
    size_t k = 0;
    for (size_t c = 0; c < conv.srcChannels; ++c) {
        const int8_t* at = conv.src + c * count + pixel - conv.width;
        for (size_t ky = 0; ky < 3; ++ky, ++k, at += conv.width) {
            _mm512_store_si512(to[0][k], _mm512_maskz_loadu_epi8(rows[ky] & columns[0], at - 1));
            _mm512_store_si512(to[1][k], _mm512_maskz_loadu_epi8(rows[ky] & columns[1], at + 1));
        }
    }
}

} // namespace

bool amx::Convolve3x3(const Convolution3x3& conv) {
    const size_t count = conv.width * conv.height;
    if (conv.width % 4 != 0 || count % kQuadPixels != 0 || conv.srcChannels == 0 ||
        12 * conv.srcChannels > kMostTaps || conv.channels % kTileRows != 0 ||
        conv.channels > kMostStemChannels) {
        return false;
    }
    const Scratch scratch(conv.scratch, conv.scratchBytes);
    if (scratch.bytes < sizeof(StemOperands)) {
        return false;
    }
    TileShapes shapes;
    for (size_t tile = 0; tile < 4; ++tile) {
        shapes.Set(tile, kTileRows, 64);
    }
    shapes.Set(4, kTileRows, 12 * conv.srcChannels);
    shapes.Set(5, kTileRows, 12 * conv.srcChannels);
    shapes.Set(6, 3 * conv.srcChannels, 64);
    shapes.Set(7, 3 * conv.srcChannels, 64);
    const Tiles tiles(shapes);
    StemOperands& operands = *reinterpret_cast<StemOperands*>(scratch.start);
    PackStem(conv, operands);
    SumsInWork work;
    Block block{};
    block.vectors = kBlockVectors;
    block.channels = kTileRows;
    block.pixels = kQuadPixels;
    block.order = PixelOrder::kInterleaved;
    block.shift = conv.shift;
    block.planePitch = count;
    // A quad is packed before the one before it is multiplied, for the same reason as weights are.
    PackStemQuad(conv, 0, operands.pixels[0]);
    for (size_t pixel = 0, quad = 0; pixel < count; pixel += kQuadPixels, ++quad) {
        if (pixel + kQuadPixels < count) {
            PackStemQuad(conv, pixel + kQuadPixels, operands.pixels[(quad + 1) % 2]);
        }
        const auto& pixels = operands.pixels[quad % 2];
        for (size_t tile = 0; tile < conv.channels / kTileRows; ++tile) {
            block.dst = conv.dst + tile * kTileRows * count + pixel;
            MakeBlock(work, block, [&](auto vector) {
                constexpr int kVector = decltype(vector)::value;
                constexpr int kWeights = 4 + kVector % 2;
                LoadTile<kVector>(operands.start[tile * kTileRows], 64);
                if constexpr (kVector % 2 == 0) {
                    LoadTile<6>(pixels[kVector / 2], 64);
                }
                LoadTile<kWeights>(operands.weights[tile][kVector % 2], 64);
                MultiplyTiles<kVector, kWeights, 6>();
            });
        }
    }
    EndLastBlock(work);
    return true;
}

} // namespace orvo
