// SPDX-License-Identifier: MIT
#include "cipher/openssl_gcm.h"

#include <stdexcept>

namespace orvo_test {
namespace {

using Bytes = std::vector<uint8_t>;

void Require(int done) {
    if (done != 1) {
        throw std::runtime_error("OpenSSL refused a step");
    }
}

int Size(const Bytes& bytes) { return static_cast<int>(bytes.size()); }

} // namespace

OpenSslGcm::OpenSslGcm() : context_(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free) {}

void OpenSslGcm::Start(bool encrypt, const Bytes& key, const Bytes& iv, const Bytes& additional) {
    EVP_CIPHER_CTX* context = context_.get();
    int written = 0;
    Require(EVP_CipherInit_ex(context, EVP_aes_128_gcm(), nullptr, nullptr, nullptr, encrypt));
    Require(EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_IVLEN, Size(iv), nullptr));
    Require(EVP_CipherInit_ex(context, nullptr, nullptr, key.data(), iv.data(), encrypt));
    if (!additional.empty()) {
        Require(EVP_CipherUpdate(context, nullptr, &written, additional.data(), Size(additional)));
    }
}

void OpenSslGcm::Text(const Bytes& in, Bytes& out) {
    int written = 0;
    if (!in.empty()) {
        Require(EVP_CipherUpdate(context_.get(), out.data(), &written, in.data(), Size(in)));
    }
}

OpenSslSealed OpenSslGcm::Seal(const Bytes& key, const Bytes& iv, const Bytes& plaintext,
                               const Bytes& additional) {
    OpenSslSealed sealed = {Bytes(plaintext.size()), Bytes(16)};
    Start(true, key, iv, additional);
    Text(plaintext, sealed.ciphertext);
    int written = 0;
    uint8_t rest[16];
    Require(EVP_CipherFinal_ex(context_.get(), rest, &written));
    Require(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_GET_TAG, 16, sealed.tag.data()));
    return sealed;
}

std::optional<Bytes> OpenSslGcm::Open(const Bytes& key, const Bytes& iv, const Bytes& ciphertext,
                                      const Bytes& additional, const Bytes& tag) {
    Bytes plaintext(ciphertext.size());
    Bytes expected = tag; // which the call takes as writable
    Start(false, key, iv, additional);
    Text(ciphertext, plaintext);
    Require(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_SET_TAG, Size(tag), expected.data()));
    int written = 0;
    uint8_t rest[16];
    return EVP_CipherFinal_ex(context_.get(), rest, &written) > 0 ? std::optional(plaintext)
                                                                  : std::nullopt;
}

} // namespace orvo_test
