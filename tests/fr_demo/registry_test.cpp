// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "fr_demo/array_sizes.h"
#include "orvo/model_store.h"
#include "reference/reference_networks.h"

// Of model_store_in_c.c.
extern "C" const size_t g_sizesInC[4];

namespace {

using orvo_reference::AlignLayers;
using orvo_reference::FrLayers;
using orvo_reference::Layer;

void ExpectEntry(const ModelArray& entry, const std::string& name, size_t size,
                 uint32_t elementSize) {
    ASSERT_NE(entry.name, nullptr) << name;
    EXPECT_EQ(entry.name, name);
    EXPECT_EQ(entry.size, size) << name;
    EXPECT_EQ(entry.elementSize, elementSize) << name;
    // The name is the symbol's own.
    EXPECT_NE(entry.data, nullptr) << name;
    EXPECT_EQ(dlsym(RTLD_DEFAULT, name.c_str()), entry.data) << name;
}

// A layer's weights stand directly before its biases.
template <size_t kEntries>
void ExpectRegistry(const ModelArray (&registry)[kEntries], const std::string& prefix,
                    const std::vector<Layer>& layers) {
    ASSERT_EQ(kEntries, 2 * layers.size());
    for (size_t i = 0; i < layers.size(); ++i) {
        const std::string number = std::to_string(layers[i].number);
        ExpectEntry(registry[2 * i], prefix + "Weights" + number, orvo_test::WeightsSize(layers[i]),
                    1);
        ExpectEntry(registry[2 * i + 1], prefix + "Bias" + number, orvo_test::BiasSize(layers[i]),
                    4);
    }
}

TEST(Registry, OfTheAlignmentModelListsEveryArrayInLayerOrder) {
    ExpectRegistry(g_alignArray, "g_align", AlignLayers());
}

TEST(Registry, OfTheRecognitionModelListsEveryArrayInLayerOrder) {
    ExpectRegistry(g_frArray, "g_fr", FrLayers());
}

TEST(Registry, LayersStandInTheOrderOfTheirNumbers) {
    for (const std::vector<Layer>& layers : {AlignLayers(), FrLayers()}) {
        EXPECT_TRUE(std::is_sorted(
            layers.begin(), layers.end(),
            [](const Layer& first, const Layer& second) { return first.number < second.number; }));
    }
}

// Programs in C see the arrays as they are declared.
#define ORVO_DECLARED(network, number)                                             \
    {"g_" #network "Weights" #number, g_##network##Weights##number,                \
     sizeof g_##network##Weights##number, sizeof g_##network##Weights##number[0]}, \
        {"g_" #network "Bias" #number, g_##network##Bias##number,                  \
         sizeof g_##network##Bias##number, sizeof g_##network##Bias##number[0]},
#define ORVO_ALIGN_DECLARED(kind, number, ...) ORVO_DECLARED(align, number)
#define ORVO_FR_DECLARED(kind, number, ...) ORVO_DECLARED(fr, number)

TEST(Registry, EntriesAreTheDeclaredArrays) {
    struct Declared {
        std::string name;
        const void* data;
        size_t size, elementSize;
    };
    const std::vector<Declared> align = {
        ORVO_ALIGN_NETWORK(ORVO_ALIGN_DECLARED, ORVO_NO_LAYER, ORVO_NO_LAYER)};
    const std::vector<Declared> fr = {
        ORVO_FR_NETWORK(ORVO_FR_DECLARED, ORVO_NO_LAYER, ORVO_NO_LAYER)};
    const auto expectSame = [](const Declared& array, const ModelArray& entry) {
        EXPECT_EQ(entry.name, array.name);
        EXPECT_EQ(entry.data, array.data) << array.name;
        EXPECT_EQ(entry.size, array.size) << array.name;
        EXPECT_EQ(entry.elementSize, array.elementSize) << array.name;
    };
    ASSERT_EQ(align.size(), std::size(g_alignArray));
    ASSERT_EQ(fr.size(), std::size(g_frArray));
    for (size_t i = 0; i < align.size(); ++i) {
        expectSame(align[i], g_alignArray[i]);
    }
    for (size_t i = 0; i < fr.size(); ++i) {
        expectSame(fr[i], g_frArray[i]);
    }
}

TEST(Registry, IsTheSameInC) {
    size_t bytes = 0;
    for (const ModelArray& entry : g_frArray) {
        bytes += entry.size;
    }
    EXPECT_EQ(g_sizesInC[0], sizeof g_alignArray);
    EXPECT_EQ(g_sizesInC[1], sizeof g_frArray);
    EXPECT_EQ(g_sizesInC[2], sizeof g_alignWeights1);
    EXPECT_EQ(g_sizesInC[3], bytes);
}

TEST(Registry, EntryHasFourWordsInOrder) {
    EXPECT_EQ(offsetof(ModelArray, elementSize), 0u);
    EXPECT_EQ(offsetof(ModelArray, name), sizeof(void*));
    EXPECT_EQ(offsetof(ModelArray, data), 2 * sizeof(void*));
    EXPECT_EQ(offsetof(ModelArray, size), 3 * sizeof(void*));
    EXPECT_EQ(sizeof(ModelArray), 4 * sizeof(void*)); // 16 bytes on a 32-bit target
}

TEST(Registry, KeyMaterialHasItsSizes) {
    EXPECT_EQ(sizeof g_alignWb, 32u);
    EXPECT_EQ(sizeof g_alignWbIv, 16u);
    EXPECT_EQ(sizeof g_alignAesIv, 16u);
    EXPECT_EQ(sizeof g_frWb, 32u);
    EXPECT_EQ(sizeof g_frWbIv, 16u);
    EXPECT_EQ(sizeof g_frAesIv, 16u);
}

} // namespace
