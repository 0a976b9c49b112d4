/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Bounded copy and fill. Every copy in the library that has a destination size goes through these
 * two functions, and each caller reports their failure with the value they returned.
 *
 * They are ordinary, weak, interposable functions: where the platform's C library or the
 * application supplies `memcpy_s` and `memset_s` of its own with these prototypes, those are the
 * ones the library calls.
 *
 * Threads: both touch nothing but their arguments.
 */
#ifndef ORVO_BOUNDED_MEMORY_H
#define ORVO_BOUNDED_MEMORY_H

#include <stddef.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/**
 * Copies @p count bytes from @p src to @p dst.
 *
 * @param dst      destination, not null, also when @p count is 0
 * @param dstSize  bytes that may be written at @p dst
 * @param src      source, not null; must not overlap the destination
 * @param count    bytes to copy; 0 copies nothing and succeeds
 * @return 0 on success; EINVAL if an address is null; ERANGE if @p count exceeds @p dstSize.
 *         On failure nothing is written.
 */
ORVO_API int memcpy_s(void* dst, size_t dstSize, const void* src, size_t count);

/**
 * Fills @p count bytes at @p dst with the low byte of @p value.
 *
 * @param dst      destination, not null, also when @p count is 0
 * @param dstSize  bytes that may be written at @p dst
 * @param value    the fill value, converted to unsigned char
 * @param count    bytes to fill; 0 fills nothing and succeeds
 * @return 0 on success; EINVAL if @p dst is null; ERANGE if @p count exceeds @p dstSize.
 *         On failure nothing is written.
 */
ORVO_API int memset_s(void* dst, size_t dstSize, int value, size_t count);

ORVO_C_END

#endif
