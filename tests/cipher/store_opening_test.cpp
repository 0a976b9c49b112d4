// SPDX-License-Identifier: MIT
// Opening the models. Every test is a process of its own, since they are opened once for good. This
// executable supplies memcpy_s and memset_s, so that any wipe can fail.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "orvo/cipher.h"
#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"
#include "plain_model.h"
#include "support/bounded_faults.h"
#include "support/stderr_capture.h"
#include "test_keys.h"

namespace {

using orvo_test::BoundedCall;
using orvo_test::Bytes;
using orvo_test::FailBoundedCall;
using orvo_test::PackingKey;
using orvo_test::PlainArrays;
using orvo_test::StderrCapture;

Bytes BytesOf(const ModelArray& array) {
    const auto* data = static_cast<const uint8_t*>(array.data);
    return {data, data + array.size};
}

using Contents = std::vector<Bytes>;

Contents Stored(std::span<const ModelArray> registry) {
    Contents contents;
    for (const ModelArray& array : registry) {
        contents.push_back(BytesOf(array));
    }
    return contents;
}

Contents Everything() {
    Contents all = Stored(g_alignArray);
    std::ranges::copy(Stored(g_frArray), std::back_inserter(all));
    return all;
}

// The wrap IV, the wrapped key and the array IV.
Bytes KeyMaterial(const std::string& network) {
    const bool align = network == "align";
    Bytes all;
    for (const std::span<const uint8_t> piece :
         {std::span<const uint8_t>(align ? g_alignWbIv : g_frWbIv),
          std::span<const uint8_t>(align ? g_alignWb : g_frWb),
          std::span<const uint8_t>(align ? g_alignAesIv : g_frAesIv)}) {
        std::ranges::copy(piece, std::back_inserter(all));
    }
    return all;
}

bool IsZero(std::span<const uint8_t> bytes) {
    return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
}

void ExpectPlain(std::span<const ModelArray> registry, const std::string& network) {
    const auto expected = PlainArrays(network);
    ASSERT_EQ(expected.size(), registry.size());
    for (const ModelArray& array : registry) {
        const auto found = expected.find(array.name);
        ASSERT_NE(found, expected.end()) << array.name;
        EXPECT_TRUE(BytesOf(array) == found->second) << array.name;
    }
}

// The text with every line number, which stands between a colon and a blank, replaced by N.
std::string WithoutLines(const std::string& text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        plain += text[i];
        const size_t end = text.find_first_not_of("0123456789", i + 1);
        if (text[i] == ':' && end != std::string::npos && end > i + 1 && text[end] == ' ') {
            plain += 'N';
            i = end - 1;
        }
    }
    return plain;
}

struct InitResult {
    int32_t status;
    std::string text;
};

InitResult Init() {
    StderrCapture capture;
    const int32_t status = OrvoFrInit();
    return {status, WithoutLines(capture.text())};
}

const char* const kAlignFailed = "[ERR] ../fr_demo/fr_api:N AlignDecrypt failed.\n";
const char* const kFrFailed = "[ERR] ../fr_demo/fr_api:N FrDecrypt failed.\n";

// Bounded calls of one model's opening: the IV, the first block, the second block's text and the
// second block are copied, then come the four wipes.
constexpr int kCallsPerModel = 8;
constexpr int kFirstWipe = 5;

TEST(StoreAtLoad, IsEncipheredWithKeyMaterialPresent) {
    EXPECT_EQ(g_frInited, 0u);
    for (const char* network : {"align", "fr"}) {
        const auto plain = PlainArrays(network);
        const std::span<const ModelArray> registry = network == std::string("align")
                                                         ? std::span<const ModelArray>(g_alignArray)
                                                         : std::span<const ModelArray>(g_frArray);
        const Bytes key = PackingKey(std::string(network) + "_key");
        const Bytes iv = PackingKey(std::string(network) + "_array_iv");
        for (const ModelArray& array : registry) {
            Bytes expected = plain.at(array.name);
            AES_ctx ctx;
            AES_init_ctx_iv(&ctx, key.data(), iv.data());
            AES_CBC_encrypt_buffer(&ctx, expected.data(), array.size & ~15u);
            EXPECT_TRUE(BytesOf(array) == expected) << array.name;
        }
    }
}

TEST(StoreAtLoad, WrapsEachKeyWithAFullBlockOfPadding) {
    for (const char* network : {"align", "fr"}) {
        const std::string name = network;
        Bytes expected = PackingKey(name + "_wrap_iv");
        Bytes wrapped = PackingKey(name + "_key");
        wrapped.resize(32, 16);
        AES_ctx ctx;
        AES_init_ctx_iv(&ctx, PackingKey("white_box_key").data(), expected.data());
        AES_CBC_encrypt_buffer(&ctx, wrapped.data(), 32);
        std::ranges::copy(wrapped, std::back_inserter(expected));
        std::ranges::copy(PackingKey(name + "_array_iv"), std::back_inserter(expected));
        EXPECT_EQ(KeyMaterial(name), expected);
    }
}

TEST(StoreOpening, LeavesThePlainModels) {
    const InitResult result = Init();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(g_frInited, 1u);
    ExpectPlain(g_alignArray, "align");
    ExpectPlain(g_frArray, "fr");
}

TEST(StoreOpening, ZeroesTheKeyMaterial) {
    EXPECT_FALSE(IsZero(KeyMaterial("align")));
    EXPECT_FALSE(IsZero(KeyMaterial("fr")));
    ASSERT_EQ(OrvoFrInit(), 0);
    EXPECT_TRUE(IsZero(KeyMaterial("align")));
    EXPECT_TRUE(IsZero(KeyMaterial("fr")));
}

TEST(StoreOpening, KeepsTheTailOfEveryArrayAsStored) {
    const Contents before = Everything();
    ASSERT_EQ(OrvoFrInit(), 0);
    const Contents after = Everything();
    int tails = 0;
    for (size_t i = 0; i < before.size(); ++i) {
        const auto tail = static_cast<ptrdiff_t>(before[i].size() % 16);
        tails += tail != 0 ? 1 : 0;
        EXPECT_TRUE(std::equal(before[i].end() - tail, before[i].end(), after[i].end() - tail));
        EXPECT_FALSE(std::equal(before[i].begin(), before[i].end() - tail, after[i].begin()));
    }
    EXPECT_GT(tails, 20);
}

TEST(StoreOpening, LeavesAnArrayOfFewerThan16BytesAlone) {
    alignas(16) uint8_t array[16];
    std::fill_n(array, 16, uint8_t{0x3c});
    g_alignArray[3].data = array;
    g_alignArray[3].size = 15;
    const Bytes whole(array, array + 16);
    ASSERT_EQ(OrvoFrInit(), 0);
    EXPECT_EQ(Bytes(array, array + 16), whole);
}

TEST(StoreOpening, StartsEveryArrayFromTheSameIv) {
    // A copy of the first array in the place of another one.
    Bytes copy = BytesOf(g_frArray[0]);
    g_frArray[7].data = copy.data();
    g_frArray[7].size = static_cast<uint32_t>(copy.size());
    ASSERT_EQ(OrvoFrInit(), 0);
    EXPECT_TRUE(copy == BytesOf(g_frArray[0]));
    EXPECT_TRUE(copy == PlainArrays("fr").at("g_frWeights0"));
}

TEST(StoreOpening, ASecondCallDoesNothingAndSaysSo) {
    ASSERT_EQ(OrvoFrInit(), 0);
    const Contents before = Everything();
    orvo_test::RecordBoundedCalls();
    const InitResult second = Init();
    EXPECT_EQ(second.status, 7);
    EXPECT_EQ(second.text, "[ERR] ../fr_demo/fr_api:N Repeat init.\n");
    EXPECT_TRUE(orvo_test::BoundedCalls().empty());
    EXPECT_TRUE(Everything() == before);
    EXPECT_EQ(g_frInited, 1u);
}

TEST(StoreOpening, WipesInTheStatedOrder) {
    orvo_test::RecordBoundedCalls();
    ASSERT_EQ(OrvoFrInit(), 0);
    const std::vector<BoundedCall> calls = orvo_test::BoundedCalls();
    ASSERT_EQ(calls.size(), 2u * kCallsPerModel);
    const std::vector<std::pair<const void*, size_t>> expected = {
        {nullptr, 16}, {g_alignWbIv, 16}, {g_alignWb, 32}, {g_alignAesIv, 16},
        {nullptr, 16}, {g_frWbIv, 16},    {g_frWb, 32},    {g_frAesIv, 16}};
    for (size_t i = 0; i < expected.size(); ++i) {
        const size_t model = i / 4;
        const BoundedCall& call = calls[model * kCallsPerModel + kFirstWipe - 1 + i % 4];
        EXPECT_FALSE(call.isCopy);
        EXPECT_EQ(call.value, 0);
        EXPECT_EQ(call.count, expected[i].second);
        EXPECT_EQ(call.dstSize, expected[i].second);
        // The unwrapping copied what the padding left of the second block right behind the key.
        const void* keyBuffer =
            static_cast<const uint8_t*>(calls[model * kCallsPerModel + 2].dst) - 16;
        EXPECT_EQ(call.dst, i % 4 == 0 ? keyBuffer : expected[i].first);
    }
}

TEST(StoreOpening, ADamagedAlignmentKeyChangesNothing) {
    const Contents before = Everything();
    g_alignWb[15] ^= 1; // the last byte of the padding becomes 17
    const Bytes material = KeyMaterial("align");
    const InitResult result = Init();
    EXPECT_EQ(result.status, 6);
    EXPECT_EQ(result.text, std::string("[ERR] ../fr_demo/align_32:N error in cbc_encryption.\n\n") +
                               kAlignFailed);
    EXPECT_EQ(g_frInited, 0u);
    EXPECT_TRUE(Everything() == before);
    EXPECT_EQ(KeyMaterial("align"), material);
    EXPECT_FALSE(IsZero(KeyMaterial("fr")));

    // It may be tried again.
    g_alignWb[15] ^= 1;
    EXPECT_EQ(Init().status, 0);
    ExpectPlain(g_alignArray, "align");
    ExpectPlain(g_frArray, "fr");
}

TEST(StoreOpening, PaddingThatDisagreesIsRefused) {
    g_alignWb[3] ^= 0x40; // a padding byte other than the last
    EXPECT_EQ(Init().status, 6);
    EXPECT_EQ(g_frInited, 0u);
}

TEST(StoreOpening, ADamagedRecognitionKeyLeavesTheAlignmentModelOpen) {
    const Contents before = Stored(g_frArray);
    g_frWb[15] ^= 1;
    const InitResult result = Init();
    EXPECT_EQ(result.status, 6);
    EXPECT_EQ(result.text,
              std::string("[ERR] ../fr_demo/fr_32:N error in cbc_encryption.\n\n") + kFrFailed);
    EXPECT_EQ(g_frInited, 0u);
    ExpectPlain(g_alignArray, "align");
    EXPECT_TRUE(IsZero(KeyMaterial("align")));
    EXPECT_TRUE(Stored(g_frArray) == before);
    EXPECT_FALSE(IsZero(KeyMaterial("fr")));
}

TEST(StoreOpening, AKeyThatUnwrapsTo32BytesFitsTheBuffer) {
    Bytes text = PackingKey("align_key");
    text.resize(31, 0xee);
    text.push_back(0); // no padding, so all 32 bytes are kept
    AES_ctx ctx;
    AES_init_ctx_iv(&ctx, PackingKey("white_box_key").data(), g_alignWbIv);
    AES_CBC_encrypt_buffer(&ctx, text.data(), 32);
    std::ranges::copy(text, g_alignWb);
    EXPECT_EQ(Init().status, 0);
    ExpectPlain(g_alignArray, "align");
}

TEST(StoreOpening, ARefusedCopyFailsTheUnwrapping) {
    for (int copy = 1; copy <= 4; ++copy) {
        const Contents before = Everything();
        FailBoundedCall(copy, ERANGE);
        const InitResult result = Init();
        EXPECT_EQ(result.status, 6) << copy;
        EXPECT_EQ(
            result.text,
            std::string("[ERR] ../fr_demo/align_32:N error in cbc_encryption.\n\n") + kAlignFailed);
        EXPECT_TRUE(Everything() == before);
    }
}

// Makes the n-th wipe (from 0) of the alignment (model 0) or recognition model fail.
InitResult InitWithFailingWipe(int model, int wipe, int code) {
    orvo_test::RecordBoundedCalls();
    FailBoundedCall(model * kCallsPerModel + kFirstWipe + wipe, code);
    return Init();
}

struct WipeName {
    int wipe;
    const char* align;
    const char* fr;
};

constexpr WipeName kWipes[] = {{0, "array", "array"},
                               {1, "g_alignWbIv", "g_frWbIv"},
                               {2, "g_alignWb", "g_frWb"},
                               {3, "g_alignAesIv", "g_frAesIv"}};

// Whether an object of the key material is zero, in the order of wiping.
std::vector<bool> Wiped(int model) {
    return model == 0
               ? std::vector<bool>{IsZero(g_alignWbIv), IsZero(g_alignWb), IsZero(g_alignAesIv)}
               : std::vector<bool>{IsZero(g_frWbIv), IsZero(g_frWb), IsZero(g_frAesIv)};
}

void ExpectFailingWipe(int model, int wipe) {
    const InitResult result = InitWithFailingWipe(model, wipe, 34 + wipe);
    EXPECT_EQ(result.status, 6);
    const std::string unit = model == 0 ? "align_32" : "fr_32";
    const std::string name = model == 0 ? kWipes[wipe].align : kWipes[wipe].fr;
    EXPECT_EQ(result.text, "[ERR] ../fr_demo/" + unit + ":N memset_s " + name +
                               " failed: " + std::to_string(34 + wipe) + "\n" +
                               (model == 0 ? kAlignFailed : kFrFailed));
    EXPECT_EQ(g_frInited, 0u);
    // Nothing after the failed wipe is tried.
    EXPECT_EQ(orvo_test::BoundedCalls().size(),
              static_cast<size_t>(model * kCallsPerModel + kFirstWipe + wipe));
    const std::vector<bool> expected = {wipe > 1, wipe > 2, false};
    EXPECT_EQ(Wiped(model), expected);
    // The model is plain already.
    ExpectPlain(g_alignArray, "align");
    if (model == 0) {
        EXPECT_EQ(Wiped(1), (std::vector<bool>{false, false, false}));
    } else {
        ExpectPlain(g_frArray, "fr");
        EXPECT_EQ(Wiped(0), (std::vector<bool>{true, true, true}));
    }
}

TEST(StoreWipe, AlignmentKeyBufferFails) { ExpectFailingWipe(0, 0); }

TEST(StoreWipe, AlignmentWrapIvFails) { ExpectFailingWipe(0, 1); }

TEST(StoreWipe, AlignmentWrappedKeyFails) { ExpectFailingWipe(0, 2); }

TEST(StoreWipe, AlignmentArrayIvFails) { ExpectFailingWipe(0, 3); }

TEST(StoreWipe, RecognitionKeyBufferFails) { ExpectFailingWipe(1, 0); }

TEST(StoreWipe, RecognitionWrapIvFails) { ExpectFailingWipe(1, 1); }

TEST(StoreWipe, RecognitionWrappedKeyFails) { ExpectFailingWipe(1, 2); }

TEST(StoreWipe, RecognitionArrayIvFails) { ExpectFailingWipe(1, 3); }

TEST(StoreOpening, ModelsOpenByThemselves) {
    EXPECT_EQ(AlignDecrypt(), 0);
    ExpectPlain(g_alignArray, "align");
    EXPECT_EQ(FrDecrypt(), 0);
    ExpectPlain(g_frArray, "fr");
    EXPECT_EQ(g_frInited, 0u); // set by OrvoFrInit() only
}

} // namespace
