// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "compute_a/chw_subject.h"
#include "compute_a/network_layers.h"
#include "support/guarded_buffer.h"

// What the tests of the four CHW convolution kernels share: one harness calls them all, with every
// buffer of exactly its stated size between unmapped pages.
namespace orvo_test {

// Fewer than half of the values at the limits, and many different ones.
bool IsLively(const std::vector<int8_t>& values);

struct Placement {
    GuardedBuffer::Place place = GuardedBuffer::kAtEnd;
    // Bytes by which each int8 array is moved off the start of its memory.
    size_t srcOffset = 0;
    size_t weightsOffset = 0;
    size_t dstOffset = 0;
    size_t scratchOffset = 0;
};

// Runs the kernel on read-only inputs and exactly sized buffers; a single byte read or written
// outside them, or written to an input, ends the test process.
std::vector<int8_t> RunGuarded(const ChwSubject& subject, const ConvShape& shape,
                               const ConvData& data, const Placement& placement);

// Runs with every buffer against the page after it, then against the page before it.
::testing::AssertionResult MatchesReference(const ChwSubject& subject, const ConvShape& shape,
                                            const ConvData& data);

// Every layer that runs on `kernel`, with lively and with extreme data.
void CheckLayers(const ChwSubject& subject, LayerKernel kernel, std::span<const Layer> layers);

// The properties that every kernel must have alike.
void CheckEveryShift(const ChwSubject& subject, ConvShape shape);
void CheckUniformExtremes(const ChwSubject& subject, ConvShape shape);
void CheckBiasWraps(const ChwSubject& subject, ConvShape shape);
void CheckOddAddresses(const ChwSubject& subject, const ConvShape& shape);

} // namespace orvo_test
