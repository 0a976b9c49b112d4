// SPDX-License-Identifier: MIT
//
// GCM by other people, to be measured against.
#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace orvo_test {

struct OpenSslSealed {
    std::vector<uint8_t> ciphertext;
    std::vector<uint8_t> tag; // 16 bytes
};

// A context is reused, since making one takes longer than a message.
class OpenSslGcm {
  public:
    OpenSslGcm();
    OpenSslSealed Seal(const std::vector<uint8_t>& key, const std::vector<uint8_t>& iv,
                       const std::vector<uint8_t>& plaintext,
                       const std::vector<uint8_t>& additional);
    // The plaintext; nothing where the tag is wrong. IVs and tags of 0 bytes are not for it.
    std::optional<std::vector<uint8_t>> Open(const std::vector<uint8_t>& key,
                                             const std::vector<uint8_t>& iv,
                                             const std::vector<uint8_t>& ciphertext,
                                             const std::vector<uint8_t>& additional,
                                             const std::vector<uint8_t>& tag);

  private:
    void Start(bool encrypt, const std::vector<uint8_t>& key, const std::vector<uint8_t>& iv,
               const std::vector<uint8_t>& additional);
    void Text(const std::vector<uint8_t>& in, std::vector<uint8_t>& out);

    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context_;
};

} // namespace orvo_test
