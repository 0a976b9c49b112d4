// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "fr_demo/array_sizes.h"
#include "orvo/model_store.h"
#include "reference/reference_networks.h"

namespace {

// What an entry must say, taken from the declarations.
struct Expected {
    std::string name;
    void* data;
    size_t size;
    uint32_t elementSize;
};

#define ORVO_ARRAYS(network, n)                                                               \
    {"g_" #network "Weights" #n, g_##network##Weights##n, sizeof g_##network##Weights##n, 1}, \
        {"g_" #network "Bias" #n, g_##network##Bias##n, sizeof g_##network##Bias##n, 4},

// clang-format off
const std::vector<Expected> kAlign = {
    ORVO_ARRAYS(align, 0)
    ORVO_ARRAYS(align, 1)
    ORVO_ARRAYS(align, 2)
    ORVO_ARRAYS(align, 4)
    ORVO_ARRAYS(align, 5)
    ORVO_ARRAYS(align, 7)
    ORVO_ARRAYS(align, 8)
    ORVO_ARRAYS(align, 10)
    ORVO_ARRAYS(align, 11)
    ORVO_ARRAYS(align, 13)
    ORVO_ARRAYS(align, 14)
    ORVO_ARRAYS(align, 16)
    ORVO_ARRAYS(align, 17)
    ORVO_ARRAYS(align, 20)
    ORVO_ARRAYS(align, 21)
    ORVO_ARRAYS(align, 23)
    ORVO_ARRAYS(align, 24)
    ORVO_ARRAYS(align, 26)
    ORVO_ARRAYS(align, 27)
    ORVO_ARRAYS(align, 29)
    ORVO_ARRAYS(align, 30)
    ORVO_ARRAYS(align, 32)
    ORVO_ARRAYS(align, 33)
    ORVO_ARRAYS(align, 35)
    ORVO_ARRAYS(align, 36)
    ORVO_ARRAYS(align, 39)
    ORVO_ARRAYS(align, 40)
    ORVO_ARRAYS(align, 42)
    ORVO_ARRAYS(align, 43)
    ORVO_ARRAYS(align, 45)
    ORVO_ARRAYS(align, 46)
    ORVO_ARRAYS(align, 48)
    ORVO_ARRAYS(align, 49)
    ORVO_ARRAYS(align, 51)
    ORVO_ARRAYS(align, 52)
    ORVO_ARRAYS(align, 54)
    ORVO_ARRAYS(align, 55)
    ORVO_ARRAYS(align, 58)
};

const std::vector<Expected> kFr = {
    ORVO_ARRAYS(fr, 0)
    ORVO_ARRAYS(fr, 2)
    ORVO_ARRAYS(fr, 5)
    ORVO_ARRAYS(fr, 7)
    ORVO_ARRAYS(fr, 9)
    ORVO_ARRAYS(fr, 11)
    ORVO_ARRAYS(fr, 14)
    ORVO_ARRAYS(fr, 15)
    ORVO_ARRAYS(fr, 17)
    ORVO_ARRAYS(fr, 19)
    ORVO_ARRAYS(fr, 21)
    ORVO_ARRAYS(fr, 23)
    ORVO_ARRAYS(fr, 25)
    ORVO_ARRAYS(fr, 27)
    ORVO_ARRAYS(fr, 29)
    ORVO_ARRAYS(fr, 31)
    ORVO_ARRAYS(fr, 33)
    ORVO_ARRAYS(fr, 35)
    ORVO_ARRAYS(fr, 37)
    ORVO_ARRAYS(fr, 39)
    ORVO_ARRAYS(fr, 41)
    ORVO_ARRAYS(fr, 43)
    ORVO_ARRAYS(fr, 46)
    ORVO_ARRAYS(fr, 47)
    ORVO_ARRAYS(fr, 49)
    ORVO_ARRAYS(fr, 51)
    ORVO_ARRAYS(fr, 53)
    ORVO_ARRAYS(fr, 55)
    ORVO_ARRAYS(fr, 57)
    ORVO_ARRAYS(fr, 59)
    ORVO_ARRAYS(fr, 61)
    ORVO_ARRAYS(fr, 63)
    ORVO_ARRAYS(fr, 65)
    ORVO_ARRAYS(fr, 67)
    ORVO_ARRAYS(fr, 69)
    ORVO_ARRAYS(fr, 71)
    ORVO_ARRAYS(fr, 73)
    ORVO_ARRAYS(fr, 75)
    ORVO_ARRAYS(fr, 77)
    ORVO_ARRAYS(fr, 79)
    ORVO_ARRAYS(fr, 81)
    ORVO_ARRAYS(fr, 83)
    ORVO_ARRAYS(fr, 85)
    ORVO_ARRAYS(fr, 87)
    ORVO_ARRAYS(fr, 90)
    ORVO_ARRAYS(fr, 91)
    ORVO_ARRAYS(fr, 93)
    ORVO_ARRAYS(fr, 95)
    ORVO_ARRAYS(fr, 97)
    ORVO_ARRAYS(fr, 99)
    ORVO_ARRAYS(fr, 101)
    ORVO_ARRAYS(fr, 103)
    ORVO_ARRAYS(fr, 105)
    ORVO_ARRAYS(fr, 106)
};
// clang-format on

template <size_t kEntries>
void ExpectRegistry(const ModelArray (&registry)[kEntries], const std::vector<Expected>& expected) {
    ASSERT_EQ(kEntries, expected.size());
    for (size_t i = 0; i < kEntries; ++i) {
        const ModelArray& entry = registry[i];
        ASSERT_NE(entry.name, nullptr) << i;
        EXPECT_EQ(entry.name, expected[i].name) << i;
        EXPECT_EQ(entry.data, expected[i].data) << entry.name;
        EXPECT_EQ(entry.size, expected[i].size) << entry.name;
        EXPECT_EQ(entry.elementSize, expected[i].elementSize) << entry.name;
        // The name is the symbol's own.
        EXPECT_EQ(dlsym(RTLD_DEFAULT, entry.name), entry.data) << entry.name;
    }
}

TEST(Registry, OfTheAlignmentModelListsEveryArrayInLayerOrder) {
    EXPECT_EQ(std::size(g_alignArray), 76u);
    ExpectRegistry(g_alignArray, kAlign);
}

TEST(Registry, OfTheRecognitionModelListsEveryArrayInLayerOrder) {
    EXPECT_EQ(std::size(g_frArray), 108u);
    ExpectRegistry(g_frArray, kFr);
}

template <size_t kEntries>
void ExpectPairs(const ModelArray (&registry)[kEntries], const std::string& prefix) {
    for (size_t i = 0; i + 1 < kEntries; i += 2) {
        const std::string weights = registry[i].name;
        ASSERT_EQ(weights.rfind(prefix + "Weights", 0), 0u) << weights;
        const std::string number = weights.substr(prefix.size() + 7);
        EXPECT_EQ(registry[i + 1].name, prefix + "Bias" + number);
        EXPECT_EQ(registry[i].elementSize, 1u) << weights;
        EXPECT_EQ(registry[i + 1].elementSize, 4u) << weights;
        EXPECT_EQ(registry[i + 1].size % 4, 0u) << weights;
    }
}

TEST(Registry, WeightsStandDirectlyBeforeTheirLayersBiases) {
    ExpectPairs(g_alignArray, "g_align");
    ExpectPairs(g_frArray, "g_fr");
}

template <size_t kEntries>
void ExpectSizes(const ModelArray (&registry)[kEntries],
                 const std::vector<orvo_reference::Layer>& layers) {
    ASSERT_EQ(layers.size() * 2, kEntries);
    for (size_t i = 0; i < layers.size(); ++i) {
        EXPECT_EQ(registry[2 * i].size, orvo_test::WeightsSize(layers[i])) << registry[2 * i].name;
        EXPECT_EQ(registry[2 * i + 1].size, orvo_test::BiasSize(layers[i]))
            << registry[2 * i + 1].name;
    }
}

TEST(Registry, SizesFollowFromTheLayers) {
    ExpectSizes(g_alignArray, orvo_reference::AlignLayers());
    ExpectSizes(g_frArray, orvo_reference::FrLayers());
}

TEST(Registry, EntryHasFourWordsInOrder) {
    EXPECT_EQ(offsetof(ModelArray, elementSize), 0u);
    EXPECT_EQ(offsetof(ModelArray, name), sizeof(void*));
    EXPECT_EQ(offsetof(ModelArray, data), 2 * sizeof(void*));
    EXPECT_EQ(offsetof(ModelArray, size), 3 * sizeof(void*));
    EXPECT_EQ(sizeof(ModelArray), 4 * sizeof(void*)); // 16 bytes on a 32-bit target
    EXPECT_EQ(sizeof g_alignArray, 76 * sizeof(ModelArray));
    EXPECT_EQ(sizeof g_frArray, 108 * sizeof(ModelArray));
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
