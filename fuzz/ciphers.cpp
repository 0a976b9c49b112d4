// SPDX-License-Identifier: MIT
//
// AES-128 with its modes, GCM and the white-box CBC beside libcrypto. Which of the library's ciphers runs is
// chosen once a process: ORVO_FR_CIPHER names another than the best.
#include <openssl/evp.h>

#include <algorithm>
#include <array>

#include "arena.h"
#include "input.h"
#include "orvo/cipher.h"
#include "quiet.h"
#include "require.h"
#include "tools/pack_models/key_file.h"

namespace orvo_fuzz {
namespace {

using Block = std::array<uint8_t, 16>;

constexpr size_t kMostBytes = 512;

Arena<size_t{1} << 14> arena;
Block whiteBoxKey; // of the tables that this build was made with

void Do(int isDone) { Require(isDone == 1, "libcrypto does its part"); }

// One for the life of the program: making one takes longer than a message.
EVP_CIPHER_CTX* Context() {
    static EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    return context;
}

uint8_t* Take(size_t count, size_t skew = 0) {
    auto* const bytes = arena.Take<uint8_t>(count, skew);
    Require(bytes != nullptr, "the arena is large enough");
    return bytes;
}

struct Text {
    uint8_t* bytes;
    uint32_t size;
};

Text TakeText(Input& input, uint32_t most) {
    const uint32_t size = input.Number<uint16_t>() % (most + 1);
    const Text text = {Take(size, input.Byte() & 15), size};
    input.Fill(text.bytes, size);
    return text;
}

Text CopyOf(const Text& text) {
    const Text copy = {Take(text.size), text.size};
    std::copy_n(text.bytes, text.size, copy.bytes);
    return copy;
}

bool AreSame(const Text& a, const Text& b) {
    return a.size == b.size && std::equal(a.bytes, a.bytes + a.size, b.bytes);
}

void ByLibcrypto(const EVP_CIPHER* cipher, bool isSealed, const Block& key, const Block& iv,
                 const Text& text) {
    int written = 0;
    Do(EVP_CipherInit_ex(Context(), cipher, nullptr, key.data(), iv.data(), isSealed ? 0 : 1));
    Do(EVP_CIPHER_CTX_set_padding(Context(), 0));
    Do(EVP_CipherUpdate(Context(), text.bytes, &written, text.bytes, static_cast<int>(text.size)));
    Require(static_cast<uint32_t>(written) == text.size, "libcrypto gives as many bytes");
}

// In one call or in two, through the context's chain.
void Cbc(Input& input) {
    const auto key = input.Number<Block>();
    const auto iv = input.Number<Block>();
    const bool isSealed = input.Flag();
    const uint32_t cut = input.Byte();
    const uint32_t blocks = input.Byte() % (kMostBytes / 16 + 1);
    const Text text = {Take(blocks * 16, input.Byte() & 15), blocks * 16};
    input.Fill(text.bytes, text.size);
    const Text wanted = CopyOf(text);
    ByLibcrypto(EVP_aes_128_cbc(), isSealed, key, iv, wanted);
    AES_ctx context;
    AES_init_ctx_iv(&context, key.data(), iv.data());
    const uint32_t first = blocks == 0 ? 0 : cut % (blocks + 1) * 16;
    const auto apply = isSealed ? AES_CBC_decrypt_buffer : AES_CBC_encrypt_buffer;
    apply(&context, text.bytes, first);
    apply(&context, text.bytes + first, text.size - first);
    Require(AreSame(text, wanted), "CBC is libcrypto's");
}

void Counter(Input& input) {
    const auto key = input.Number<Block>();
    auto iv = input.Number<Block>();
    // Counters that carry.
    const uint8_t ones = input.Byte() % 32;
    std::fill(iv.begin() + (ones > 16 ? 0 : 16 - ones), iv.end(), uint8_t{0xFF});
    const Text text = TakeText(input, kMostBytes);
    const Text wanted = CopyOf(text);
    ByLibcrypto(EVP_aes_128_ctr(), false, key, iv, wanted);
    AES_ctx context;
    AES_init_ctx(&context, key.data());
    AES_ctx_set_iv(&context, iv.data());
    AES_CTR_xcrypt_buffer(&context, text.bytes, text.size);
    Require(AreSame(text, wanted), "CTR is libcrypto's");
}

void OneBlock(Input& input) {
    const auto key = input.Number<Block>();
    const bool isSealed = input.Flag();
    const Text text = {Take(16, input.Byte() & 15), 16};
    input.Fill(text.bytes, 16);
    const Text wanted = CopyOf(text);
    ByLibcrypto(EVP_aes_128_ecb(), isSealed, key, {}, wanted);
    AES_ctx context;
    AES_init_ctx(&context, key.data());
    (isSealed ? AES_ECB_decrypt : AES_ECB_encrypt)(&context, text.bytes);
    Require(AreSame(text, wanted), "a block is libcrypto's");
}

// Of any bytes, or of such that libcrypto padded: both have to be of one mind about the padding, but that a
// last byte of 0 stands for none here.
void WhiteBoxCbc(Input& input) {
    const auto iv = input.Number<Block>();
    const bool isPadded = input.Flag();
    Text text = TakeText(input, kMostBytes / 2);
    if (isPadded) {
        const Text padded = {Take(text.size / 16 * 16 + 16), text.size / 16 * 16 + 16};
        std::copy_n(text.bytes, text.size, padded.bytes);
        std::fill_n(padded.bytes + text.size, padded.size - text.size,
                    static_cast<uint8_t>(padded.size - text.size));
        ByLibcrypto(EVP_aes_128_cbc(), false, whiteBoxKey, iv, padded);
        text = padded;
    }
    const Text out = {Take(text.size), text.size};
    uint32_t written = 0;
    const int32_t status =
        wb_aes_decrypt_cbc(iv.data(), text.bytes, text.size, out.bytes, &written);
    const bool isWhole = text.size > 0 && text.size % 16 == 0;
    if (!isWhole) {
        Require(status == -1, "a length that is no multiple of 16 is refused");
        return;
    }
    const Text plain = CopyOf(text);
    ByLibcrypto(EVP_aes_128_cbc(), true, whiteBoxKey, iv, plain);
    const uint8_t last = plain.bytes[plain.size - 1];
    const bool isGood =
        last <= 16 && std::all_of(plain.bytes + plain.size - last, plain.bytes + plain.size,
                                  [last](uint8_t byte) { return byte == last; });
    Require((status == 0) == isGood, "padding is judged as defined");
    if (isGood) {
        Require(written == plain.size - last, "padding is taken off");
        Require(std::equal(plain.bytes, plain.bytes + written, out.bytes), "CBC is libcrypto's");
    }
    Require(wb_aes_decrypt_cbc_no_pad(iv.data(), text.bytes, text.size, out.bytes) == 0,
            "without padding all goes");
    Require(AreSame(out, plain), "CBC without padding is libcrypto's");
}

struct Message {
    Text iv, additional, text;
};

// The tag of 16 bytes; the text is enciphered in place.
Block SealByLibcrypto(const Message& m) {
    int written = 0;
    Block tag;
    Do(EVP_EncryptInit_ex(Context(), EVP_aes_128_gcm(), nullptr, nullptr, nullptr));
    Do(EVP_CIPHER_CTX_ctrl(Context(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(m.iv.size),
                           nullptr));
    Do(EVP_EncryptInit_ex(Context(), nullptr, nullptr, whiteBoxKey.data(), m.iv.bytes));
    if (m.additional.size > 0) {
        Do(EVP_EncryptUpdate(Context(), nullptr, &written, m.additional.bytes,
                             static_cast<int>(m.additional.size)));
    }
    if (m.text.size > 0) {
        Do(EVP_EncryptUpdate(Context(), m.text.bytes, &written, m.text.bytes,
                             static_cast<int>(m.text.size)));
    }
    uint8_t rest[16];
    Do(EVP_EncryptFinal_ex(Context(), rest, &written));
    Do(EVP_CIPHER_CTX_ctrl(Context(), EVP_CTRL_GCM_GET_TAG, 16, tag.data()));
    return tag;
}

int32_t Open(const Message& m, const Text& sealed, const Text& opened, const Text& tag) {
    return wb_aes_decrypt_gcm(m.iv.bytes, m.iv.size, sealed.bytes, sealed.size, opened.bytes,
                              m.additional.bytes, m.additional.size, tag.bytes, tag.size);
}

// What was sealed is opened again, and with one bit changed it is refused and nothing is written.
void CheckOpening(Input& input, const Message& m, const Text& sealed, const Text& tag) {
    const Text opened = {Take(sealed.size), sealed.size};
    std::fill_n(opened.bytes, opened.size, uint8_t{0x5A});
    const uint32_t bit = input.Number<uint16_t>();
    const Text changes[] = {tag, sealed, m.additional, m.iv};
    const Text& changed = changes[input.Byte() % 4];
    if (changed.size > 0) {
        uint8_t& byte = changed.bytes[bit / 8 % changed.size];
        byte = static_cast<uint8_t>(byte ^ 1u << bit % 8);
        // A short tag fits a changed message now and then.
        const bool isOpened = Open(m, sealed, opened, tag) == 0;
        Require(!isOpened || (tag.size < 8 && &changed != &changes[0]), "a change is noticed");
        Require(isOpened || std::all_of(opened.bytes, opened.bytes + opened.size,
                                        [](uint8_t b) { return b == 0x5A; }),
                "a refusal writes nothing");
        byte = static_cast<uint8_t>(byte ^ 1u << bit % 8);
    }
    Require(Open(m, sealed, opened, tag) == 0, "what was sealed is opened");
    Require(AreSame(opened, m.text), "it is what was sealed");
}

void Gcm(Input& input) {
    const Message m = {TakeText(input, 40), TakeText(input, 64), TakeText(input, kMostBytes / 2)};
    const auto tagSize = static_cast<uint32_t>(input.Byte() % 20);
    const Text sealed = {Take(m.text.size), m.text.size};
    const Text ownTag = {Take(tagSize), tagSize};
    const int32_t status =
        wb_aes_encrypt_gcm(m.iv.bytes, m.iv.size, m.text.bytes, m.text.size, sealed.bytes,
                           m.additional.bytes, m.additional.size, ownTag.bytes, ownTag.size);
    const bool isGood = tagSize >= 4 && tagSize <= 16;
    Require((status == 0) == isGood, "tags of 4 to 16 bytes are made");
    if (!isGood) {
        return;
    }
    if (m.iv.size > 0) { // libcrypto knows no empty one
        const Message other = {m.iv, m.additional, CopyOf(m.text)};
        const Block wanted = SealByLibcrypto(other);
        Require(AreSame(sealed, other.text), "GCM is libcrypto's");
        Require(std::equal(ownTag.bytes, ownTag.bytes + tagSize, wanted.begin()),
                "its tag is, too");
    }
    CheckOpening(input, m, sealed, ownTag);
}

// Tags, texts and all that nobody sealed.
void OpenAnything(Input& input) {
    const Message m = {TakeText(input, 40), TakeText(input, 64), TakeText(input, kMostBytes / 2)};
    const Text tag = TakeText(input, 20);
    const Text opened = {Take(m.text.size), m.text.size};
    std::fill_n(opened.bytes, opened.size, uint8_t{0x5A});
    if (Open(m, m.text, opened, tag) != 0) {
        Require(std::all_of(opened.bytes, opened.bytes + opened.size,
                            [](uint8_t b) { return b == 0x5A; }),
                "a refusal writes nothing");
    }
}

} // namespace
} // namespace orvo_fuzz

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    orvo_fuzz::SilenceDiagnostics();
    orvo_fuzz::whiteBoxKey = orvo::pack::ReadKeyFile(ORVO_KEY_FILE).whiteBoxKey;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    static constexpr void (*kKinds[])(Input&) = {OneBlock,    Cbc, Counter,
                                                 WhiteBoxCbc, Gcm, OpenAnything};
    Input input(data, size);
    kKinds[input.Byte() % std::size(kKinds)](input);
    arena.Reset();
    return 0;
}
