/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The macros that public declarations carry.
 *
 * The libraries are compiled with hidden visibility; a name that carries ORVO_API is visible in
 * the shared library's dynamic symbol table and can be interposed there, anything else is private.
 */
#ifndef ORVO_EXPORT_H
#define ORVO_EXPORT_H

/** An exported name, and the version that has it first. Plain ORVO_API means from the start. */
#define ORVO_API_SINCE(major, minor) __attribute__((visibility("default")))
#define ORVO_API ORVO_API_SINCE(1, 0)

/** No pointer argument may be null; the compiler says so where it sees one that is. */
#define ORVO_NONNULL __attribute__((nonnull))

/** The status must be looked at: to go on without doing so would be to use what is not there. */
#define ORVO_CHECK_RESULT __attribute__((warn_unused_result))

#ifdef __cplusplus
#define ORVO_C_BEGIN extern "C" {
#define ORVO_C_END }
#else
#define ORVO_C_BEGIN
#define ORVO_C_END
#endif

#endif
