// SPDX-License-Identifier: MIT
#include "faces/digest.h"

#include <openssl/evp.h>

#include <iterator>

#include "files/failure.h"
#include "orvo/model_store.h"

namespace kova_cli {
namespace {

void AddArrays(Sha256Stream& stream, const ModelArray* arrays, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        stream.Add(arrays[i].data, arrays[i].size);
    }
}

} // namespace

Sha256Stream::Sha256Stream() : context_(EVP_MD_CTX_new()) {
    if (context_ == nullptr || EVP_DigestInit_ex(context_, EVP_sha256(), nullptr) != 1) {
        EVP_MD_CTX_free(context_);
        throw Failure("digests cannot be computed: libcrypto refused SHA-256");
    }
}

Sha256Stream::~Sha256Stream() { EVP_MD_CTX_free(context_); }

void Sha256Stream::Add(const void* bytes, size_t count) {
    EVP_DigestUpdate(context_, bytes, count);
}

Sha256 Sha256Stream::Finish() {
    Sha256 digest{};
    EVP_DigestFinal_ex(context_, digest.data(), nullptr);
    return digest;
}

Sha256 AlignModelDigest() {
    Sha256Stream stream;
    AddArrays(stream, g_alignArray, std::size(g_alignArray));
    return stream.Finish();
}

Sha256 RecognitionModelDigest() {
    Sha256Stream stream;
    AddArrays(stream, g_frArray, std::size(g_frArray));
    return stream.Finish();
}

Sha256 ModelsDigest() {
    Sha256Stream stream;
    AddArrays(stream, g_alignArray, std::size(g_alignArray));
    AddArrays(stream, g_frArray, std::size(g_frArray));
    return stream.Finish();
}

std::string Hex(Bytes bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

} // namespace kova_cli
