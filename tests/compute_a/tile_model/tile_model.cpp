// SPDX-License-Identifier: MIT
#include "compute_a/tile_model/tile_model.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace orvo_test {
namespace {

constexpr size_t kTiles = 8;
constexpr size_t kMostRows = 16;
constexpr size_t kMostRowBytes = 64;

struct Tile {
    size_t rows = 0;
    size_t rowBytes = 0;
    uint8_t bytes[kMostRows][kMostRowBytes] = {};
};

struct Unit {
    bool configured = false;
    Tile tiles[kTiles];
    size_t multiplications = 0;
};

thread_local Unit unit;

void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "the processor would refuse: %s\n", what);
        std::abort();
    }
}

Tile& Configured(int number) {
    Require(unit.configured, "no tiles are configured");
    Tile& tile = unit.tiles[number];
    Require(tile.rows > 0, "a tile without a shape");
    return tile;
}

template <typename Word>
Word Get(const void* from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

// Four products into a sum, which wraps.
uint32_t AddProducts(uint32_t sum, const uint8_t* a, const uint8_t* b) {
    for (size_t i = 0; i < 4; ++i) {
        sum += static_cast<uint32_t>(static_cast<int8_t>(a[i]) * static_cast<int8_t>(b[i]));
    }
    return sum;
}

} // namespace

// 64 bytes: palette, row to start from, 14 of zero, 16 words with the bytes of a row, 16 bytes with
// the rows; 8 tiles exist.
void ConfigureModelTiles(const void* shapes) {
    const uint8_t* const bytes = static_cast<const uint8_t*>(shapes);
    Require(bytes[0] == 1, "another palette than 1");
    Require(bytes[1] == 0, "a row to start from");
    for (size_t i = 2; i < 16; ++i) {
        Require(bytes[i] == 0, "reserved bytes that are not zero");
    }
    for (size_t i = 0; i < 16; ++i) {
        const size_t rowBytes = Get<uint16_t>(bytes + 16 + 2 * i);
        const size_t rows = bytes[48 + i];
        Require(i < kTiles || (rowBytes == 0 && rows == 0), "more than 8 tiles");
        Require(rows <= kMostRows && rowBytes <= kMostRowBytes,
                "a tile beyond 16 rows of 64 bytes");
        Require((rows == 0) == (rowBytes == 0), "a tile with rows or columns alone");
        if (i < kTiles) {
            unit.tiles[i] = Tile{};
            unit.tiles[i].rows = rows;
            unit.tiles[i].rowBytes = rowBytes;
        }
    }
    unit.configured = true;
}

void ReleaseModelTiles() {
    const size_t multiplications = unit.multiplications;
    unit = Unit{};
    unit.multiplications = multiplications;
}

void LoadModelTile(int number, const void* from, size_t stride) {
    Tile& tile = Configured(number);
    std::memset(tile.bytes, 0, sizeof tile.bytes);
    for (size_t row = 0; row < tile.rows; ++row) {
        std::memcpy(tile.bytes[row], static_cast<const uint8_t*>(from) + row * stride,
                    tile.rowBytes);
    }
}

void StoreModelTile(int number, void* to, size_t stride) {
    const Tile& tile = Configured(number);
    for (size_t row = 0; row < tile.rows; ++row) {
        std::memcpy(static_cast<uint8_t*>(to) + row * stride, tile.bytes[row], tile.rowBytes);
    }
}

void MultiplyModelTiles(int sumsNumber, int aNumber, int bNumber) {
    Tile& sums = Configured(sumsNumber);
    const Tile& a = Configured(aNumber);
    const Tile& b = Configured(bNumber);
    Require(sumsNumber != aNumber && sumsNumber != bNumber && aNumber != bNumber,
            "a tile in two places of a product");
    Require(sums.rowBytes % 4 == 0 && a.rowBytes % 4 == 0 && b.rowBytes % 4 == 0,
            "a row that ends within a word");
    Require(a.rows == sums.rows && b.rowBytes == sums.rowBytes && a.rowBytes == 4 * b.rows,
            "tiles whose shapes do not make a product");
    for (size_t row = 0; row < sums.rows; ++row) {
        for (size_t column = 0; column < sums.rowBytes; column += 4) {
            uint32_t sum = Get<uint32_t>(&sums.bytes[row][column]);
            for (size_t k = 0; k < b.rows; ++k) {
                sum = AddProducts(sum, &a.bytes[row][4 * k], &b.bytes[k][column]);
            }
            std::memcpy(&sums.bytes[row][column], &sum, sizeof sum);
        }
    }
    ++unit.multiplications;
}

size_t ModelMultiplications() { return unit.multiplications; }

} // namespace orvo_test
