// SPDX-License-Identifier: MIT
// The white-box CBC functions when a bounded copy is refused. This executable supplies memcpy_s.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "orvo/cipher.h"
#include "support/bounded_faults.h"
#include "test_keys.h"

namespace {

using orvo_test::BoundedCall;
using orvo_test::FailBoundedCall;
using orvo_test::PackingKey;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kLength = 48;

Bytes Enciphered() {
    Bytes text(kLength, 'x');
    std::fill(text.end() - 4, text.end(), uint8_t{4});
    AES_ctx ctx;
    AES_init_ctx_iv(&ctx, PackingKey("white_box_key").data(), Bytes(16, 0).data());
    AES_CBC_encrypt_buffer(&ctx, text.data(), kLength);
    return text;
}

TEST(WhiteBoxCbcCopies, AreBoundedBySixteenBytesEach) {
    const Bytes iv(16, 0);
    const Bytes in = Enciphered();
    Bytes out(kLength);
    uint32_t length = 0;
    orvo_test::RecordBoundedCalls();
    ASSERT_EQ(wb_aes_decrypt_cbc(iv.data(), in.data(), kLength, out.data(), &length), 0);
    const std::vector<BoundedCall> calls = orvo_test::BoundedCalls();
    // The IV; then the block just read after each block, and the last block's text before that.
    const std::vector<const void*> sources = {iv.data(), in.data(), in.data() + 16, nullptr,
                                              in.data() + 32};
    ASSERT_EQ(calls.size(), sources.size());
    for (size_t i = 0; i < calls.size(); ++i) {
        EXPECT_TRUE(calls[i].isCopy);
        EXPECT_EQ(calls[i].dstSize, 16u);
        EXPECT_EQ(calls[i].count, i == 3 ? 12u : 16u);
        if (sources[i] != nullptr) {
            EXPECT_EQ(calls[i].src, sources[i]);
        }
    }
    EXPECT_EQ(calls[3].dst, out.data() + 32);
}

TEST(WhiteBoxCbcCopies, AnyRefusalFailsTheCall) {
    const Bytes in = Enciphered();
    for (int n = 1; n <= 5; ++n) {
        Bytes out(kLength, 0xa5);
        uint32_t length = 4711;
        FailBoundedCall(n, ERANGE);
        EXPECT_EQ(wb_aes_decrypt_cbc(Bytes(16, 0).data(), in.data(), kLength, out.data(), &length),
                  -1)
            << n;
        // The length is written before the last block is copied, and stays.
        EXPECT_EQ(length, n < 4 ? 4711u : 44u) << n;
        EXPECT_TRUE(n != 4 || Bytes(out.begin() + 32, out.end()) == Bytes(16, 0xa5));
    }
    orvo_test::StopBoundedFaults();
    Bytes out(kLength);
    uint32_t length = 0;
    EXPECT_EQ(wb_aes_decrypt_cbc(Bytes(16, 0).data(), in.data(), kLength, out.data(), &length), 0);
}

TEST(WhiteBoxCbcCopies, AnyRefusalFailsTheCallWithoutPadding) {
    const Bytes in = Enciphered();
    Bytes out(kLength);
    for (int n = 1; n <= 4; ++n) {
        FailBoundedCall(n, EINVAL);
        EXPECT_EQ(wb_aes_decrypt_cbc_no_pad(Bytes(16, 0).data(), in.data(), kLength, out.data()),
                  -1)
            << n;
    }
    // There is no fifth copy.
    FailBoundedCall(5, EINVAL);
    EXPECT_EQ(wb_aes_decrypt_cbc_no_pad(Bytes(16, 0).data(), in.data(), kLength, out.data()), 0);
    orvo_test::StopBoundedFaults();
}

} // namespace
