// SPDX-License-Identifier: MIT
//
// Kinds of values at which instruction sets could part: where sums of 16 bits run over, where results
// saturate, where 32 bits wrap.
#pragma once

#include "compute_a/chw_subject.h"

namespace orvo_proof {

enum class Regime {
    kUniform,
    kAllLowest,
    kAllHighest,
    kAlternating,
    kZero,
    kEdges, // sums within 2 of where a result begins to saturate
    kWrap,  // sums within 2 of where 32 bits wrap
};
constexpr Regime kRegimes[] = {Regime::kUniform,     Regime::kAllLowest, Regime::kAllHighest,
                               Regime::kAlternating, Regime::kZero,      Regime::kEdges,
                               Regime::kWrap};
const char* Name(Regime regime);

// Values of the regime; the first one is written to `values`, bytes of a tensor or weights.
void Fill(Regime regime, uint64_t seed, std::vector<int8_t>& values);

orvo_test::ConvData MakeData(const orvo_test::ChwSubject& subject,
                             const orvo_test::ConvShape& shape, Regime regime, uint64_t seed);

// The bias that brings a sum to within 2 of an edge: of saturation under the shift, or of 32 bits.
// `choice` goes through the edges and the distances.
int32_t BiasToEdge(Regime regime, int32_t sum, uint32_t shift, uint64_t choice);

} // namespace orvo_proof
