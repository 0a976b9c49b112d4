// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "pictures/picture_io.h"

struct evp_md_ctx_st;

namespace kova_cli {

using Sha256 = std::array<uint8_t, 32>;

// SHA-256 of bytes given piece by piece.
class Sha256Stream {
  public:
    Sha256Stream();
    ~Sha256Stream();
    Sha256Stream(const Sha256Stream&) = delete;
    Sha256Stream& operator=(const Sha256Stream&) = delete;

    void Add(const void* bytes, size_t count);
    Sha256 Finish();

  private:
    evp_md_ctx_st* context_;
};

// Of the opened arrays of both models, one after the other in the order of the registry: it names
// the weights that this build computes with. A Recogniser must have opened them.
Sha256 AlignModelDigest();
Sha256 RecognitionModelDigest();
// Of both together: features are comparable where this is the same.
Sha256 ModelsDigest();

std::string Hex(Bytes bytes);

} // namespace kova_cli
