// SPDX-License-Identifier: MIT
//
// That the model of the tile instructions is one, and that the kernels over it go through it. What
// they give is compared in the tests of the kernels, which run over the model as well.
#include "compute_a/tile_model/tile_model.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vector>

#include "compute_a/chw_case.h"
#include "compute_a/tile_model/library.h"
#include "compute_a/tile_model/tile_walk.h"
#include "support/machine.h"

namespace {

using namespace orvo_test;

void AskForTiles() {
    constexpr long kAskForState = 0x1023; // ARCH_REQ_XCOMP_PERM
    constexpr long kTileData = 18;
    ASSERT_EQ(syscall(SYS_arch_prctl, kAskForState, kTileData), 0);
}

TEST(TileModel, GivesWhatTheProcessorGives) {
    if (!MachineHas("amx")) {
        GTEST_SKIP() << "this processor has no tiles";
    }
    AskForTiles();
    for (uint64_t seed = 0; seed < 2000; ++seed) {
        ASSERT_EQ(WalkOverModel(seed), WalkOverProcessor(seed)) << seed;
    }
}

// Two channels by one pixel, eight rows of values.
TEST(TileModel, AddsProductsOfSignedBytes) {
    WalkShapes shapes;
    shapes.Set(0, 2, 4);
    shapes.Set(1, 2, 8);
    shapes.Set(2, 2, 4);
    const int8_t weights[2][8] = {{1, -2, 3, -128, 5, 6, 7, 8}, {0, 0, 0, 0, 127, 1, 0, -1}};
    const int8_t values[2][4] = {{4, 5, -6, -128}, {-128, 9, 10, 127}};
    int32_t sums[2] = {10, INT32_MIN};
    orvo::ConfigureTiles(&shapes);
    orvo::LoadTile<0>(sums, 4);
    orvo::LoadTile<1>(weights, 8);
    orvo::LoadTile<2>(values, 4);
    orvo::MultiplyTiles<0, 1, 2>();
    orvo::StoreTile<0>(sums, 4);
    orvo::ReleaseTiles();
    EXPECT_EQ(sums[0], 10 + (4 - 10 - 18 + 16384) + (-640 + 54 + 70 + 1016));
    EXPECT_EQ(sums[1], INT32_MAX - (127 * 128 - 9 + 127) + 1); // wraps
}

TEST(TileModel, RefusesWhatTheProcessorRefuses) {
    const auto multiply = [](int sumRows, int aBytes, int bRows) {
        WalkShapes shapes;
        shapes.Set(0, sumRows, 64);
        shapes.Set(1, 16, aBytes);
        shapes.Set(2, bRows, 64);
        orvo::ConfigureTiles(&shapes);
        orvo::MultiplyTiles<0, 1, 2>();
        orvo::ReleaseTiles();
    };
    multiply(16, 64, 16);
    EXPECT_DEATH(multiply(15, 64, 16), "do not make a product");
    EXPECT_DEATH(multiply(16, 60, 16), "do not make a product");
    EXPECT_DEATH(multiply(16, 64, 15), "do not make a product");
    EXPECT_DEATH(multiply(17, 64, 16), "beyond 16 rows");
    EXPECT_DEATH(multiply(16, 64, 0), "rows or columns alone");
    EXPECT_DEATH((orvo::MultiplyTiles<0, 1, 2>()), "no tiles are configured");
}

// Whether the layer was made by tiles alone.
bool IsMadeByTiles(const ChwSubject& subject, const Layer& layer) {
    const ConvShape shape = ShapeOf(layer);
    const size_t multiplications = ModelMultiplications();
    const size_t without = ProductsWithoutTiles();
    RunGuarded(subject, shape, LivelyData(subject, shape, 1), {});
    return ModelMultiplications() > multiplications && ProductsWithoutTiles() == without;
}

// All but the pointwise layers with few inputs, which are dearer by tiles.
TEST(AmxOverTheModel, MakesTheNetworksLayersByTiles) {
    constexpr int kFewestRows = 32;
    std::vector<Layer> layers(std::begin(kAlignLayers), std::end(kAlignLayers));
    layers.insert(layers.end(), std::begin(kRecognitionLayers), std::end(kRecognitionLayers));
    for (const Layer& layer : layers) {
        SCOPED_TRACE(testing::Message() << layer.srcChannels << " planes of " << layer.size);
        if (layer.kernel == LayerKernel::kGeneric) {
            EXPECT_TRUE(IsMadeByTiles(kGenericConv, layer));
        } else if (layer.kernel == LayerKernel::kPointwise) {
            EXPECT_EQ(IsMadeByTiles(kPointwiseConv, layer), layer.srcChannels >= kFewestRows);
        }
    }
}

} // namespace
