/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The one macro through which every public name is exported.
 *
 * The libraries are compiled with hidden visibility; a name that carries ORVO_API is visible in
 * the shared library's dynamic symbol table and can be interposed there, anything else is private.
 */
#ifndef ORVO_EXPORT_H
#define ORVO_EXPORT_H

#define ORVO_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define ORVO_C_BEGIN extern "C" {
#define ORVO_C_END }
#else
#define ORVO_C_BEGIN
#define ORVO_C_END
#endif

#endif
