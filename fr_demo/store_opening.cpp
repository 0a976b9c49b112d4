// SPDX-License-Identifier: MIT
#include "fr_demo/store_opening.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "cipher/traces.h"
#include "cipher/wipe.h"
#include "common/claim_pages.h"
#include "common/diagnostics.h"
#include "orvo/bounded_memory.h"
#include "orvo/cipher.h"

namespace orvo {
namespace {

constexpr uint32_t kWrappedKeyBytes = 32;
constexpr uint32_t kIvBytes = 16;
constexpr uint32_t kKeyBytes = 16;

// A damaged store may unwrap to as many bytes as went in, so the buffer holds twice the key.
struct KeyBuffer {
    uint8_t bytes[kWrappedKeyBytes] = {};
    ~KeyBuffer() { Wipe(bytes, sizeof bytes); }
};

bool UnwrapKey(const StoredModel& model, KeyBuffer& key) {
    uint32_t unwrappedLength = 0;
    const int32_t ret = wb_aes_decrypt_cbc(model.wrapIv, model.wrappedKey, kWrappedKeyBytes,
                                           key.bytes, &unwrappedLength);
    if (ret != 0) {
        ORVO_ERR(model.unit, "error in cbc_encryption.\n\n");
        return false;
    }
    return true;
}

// Biases are enciphered as they lie on a machine with the least significant byte first. Elsewhere
// their bytes change places before and after; what is stored plain is the same number then as
// before.
void OrderBytes(const ModelArray& array) {
    if constexpr (std::endian::native != std::endian::little) {
        auto* const bytes = static_cast<uint8_t*>(array.data);
        for (uint32_t at = 0; array.elementSize == 4 && at < array.size; at += 4) {
            const uint8_t word[4] = {bytes[at + 3], bytes[at + 2], bytes[at + 1], bytes[at]};
            std::memcpy(bytes + at, word, sizeof word);
        }
    }
}

struct Bytes {
    uintptr_t begin;
    uintptr_t end;
};

// Arrays that lie next to one another, as the linker puts them in one order or the other, are
// claimed together. Between two such lies less than the smallest page, so that no page is claimed
// but those that hold bytes of an array.
void ClaimArrays(const StoredModel& model) {
    constexpr uintptr_t kLeastPage = 4096;
    Bytes claim = {};
    const auto take = [&claim] {
        ClaimPages(reinterpret_cast<void*>(claim.begin), claim.end - claim.begin);
    };
    for (size_t i = 0; i < model.arrayCount; ++i) {
        const auto begin = reinterpret_cast<uintptr_t>(model.arrays[i].data);
        const uintptr_t end = begin + model.arrays[i].size;
        const bool isNext = begin < claim.end + kLeastPage && claim.begin < end + kLeastPage;
        if (i > 0 && !isNext) {
            take();
        }
        claim = i > 0 && isNext ? Bytes{std::min(claim.begin, begin), std::max(claim.end, end)}
                                : Bytes{begin, end};
    }
    take();
}

// Every array is a CBC stream of its own that starts from the same IV. The bytes after its last
// whole block are stored plain.
void DecipherArrays(const StoredModel& model, const KeyBuffer& key) {
    AES_ctx context;
    for (size_t i = 0; i < model.arrayCount; ++i) {
        const ModelArray& array = model.arrays[i];
        AES_init_ctx_iv(&context, key.bytes, model.arrayIv);
        OrderBytes(array);
        AES_CBC_decrypt_buffer(&context, static_cast<uint8_t*>(array.data), array.size & ~15u);
        OrderBytes(array);
    }
    Wipe(&context, sizeof context);
}

// Wipes one object of the key material. `prefix` and `name` together name it in the message.
bool WipeObject(const StoredModel& model, const char* prefix, const char* name, uint8_t* object,
                uint32_t size) {
    const int ret = memset_s(object, size, 0, size);
    if (ret != 0) {
        ORVO_ERR(model.unit, "memset_s %s%s failed: %d\n", prefix, name, ret);
        return false;
    }
    return true;
}

bool WipeKeyMaterial(const StoredModel& model, KeyBuffer& key) {
    return WipeObject(model, "", "array", key.bytes, kKeyBytes) &&
           WipeObject(model, model.prefix, "WbIv", model.wrapIv, kIvBytes) &&
           WipeObject(model, model.prefix, "Wb", model.wrappedKey, kWrappedKeyBytes) &&
           WipeObject(model, model.prefix, "AesIv", model.arrayIv, kIvBytes);
}

// A frame of its own, so that nothing of it is left out when the stack below its caller is wiped.
__attribute__((noinline)) int32_t Open(const StoredModel& model) {
    KeyBuffer key;
    if (!UnwrapKey(model, key)) {
        return 1;
    }
    ClaimArrays(model);
    DecipherArrays(model, key);
    return WipeKeyMaterial(model, key) ? 0 : 1;
}

} // namespace

int32_t OpenStore(const StoredModel& model) {
    const int32_t status = Open(model);
    WipeTraces();
    return status;
}

} // namespace orvo
