/* SPDX-License-Identifier: MIT */
/**
 * @file
 * What the Python package asks for many at a time. No function keeps state, and none but
 * KovaPythonFeatures() needs the models. Addresses are not null unless a count is 0; counts are at
 * least 0; arrays lie without gaps.
 */
#ifndef ORVO_PYTHON_MANY_H
#define ORVO_PYTHON_MANY_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/**
 * OrvoFrRun() for pictures one behind another, until one is refused. One call at a time, as there.
 *
 * @param pictures  [count][256][256] grey levels, only read
 * @param features  [count][128], receives the features
 * @param done      receives how many features were written
 * @return the status of the last OrvoFrRun()
 */
ORVO_API int32_t KovaPythonFeatures(const uint8_t* pictures, int64_t count, float* features,
                                    int64_t* done);

/**
 * The distances of each feature to each of others, with the bits of OrvoFrGetDistance(). Any number
 * of threads may call it.
 *
 * @param a          [aCount][128], at float alignment
 * @param b          [bCount][128], at float alignment
 * @param distances  [aCount][bCount]
 */
ORVO_API void KovaPythonDistances(const float* a, int64_t aCount, const float* b, int64_t bCount,
                                  float* distances);

/** A gallery's checksum of some bytes, begun from `sums`, which it replaces. */
ORVO_API void KovaPythonChecksum(uint32_t sums[4], const void* bytes, int64_t count);

ORVO_C_END

#endif
