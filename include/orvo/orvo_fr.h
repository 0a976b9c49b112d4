/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The core: from a 256 x 256 grey picture in plain memory to a face feature, and the distance of
 * two features. No media memory, no locks, no allocation.
 *
 * Order of calls: OrvoFrInit() once in the life of the process; OrvoFrSetMemory() with a block of
 * OrvoFrGetMemorySize() bytes (before or after OrvoFrInit()); then OrvoFrRun() any number of
 * times. OrvoFrGetDistance() needs neither.
 *
 * Threads: the core keeps its state in module-level variables and has no locks. One call at a
 * time, except for the distance functions, which read only their arguments and may run in any
 * thread at any time.
 *
 * Diagnostics: every failure prints one line to standard error, "[ERR] UNIT:LINE TEXT", where the
 * unit is a source file.
 */
#ifndef ORVO_ORVO_FR_H
#define ORVO_ORVO_FR_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/** Status codes of the core's functions. */
enum {
    ORVO_FR_OK = 0,            /**< success */
    ORVO_FR_NULL_ADDRESS = 1,  /**< a required address is null, or no working memory was set */
    ORVO_FR_WRONG_SIZE = 2,    /**< a size or shape is wrong, or a bounded copy failed */
    ORVO_FR_NOT_DECRYPTED = 6, /**< a model could not be decrypted */
    ORVO_FR_REPEAT_INIT = 7    /**< OrvoFrInit() had already succeeded; nothing was done */
};

enum {
    ORVO_FR_IMAGE_SIZE = 256,     /**< rows and columns of the input picture */
    ORVO_FR_CROP_SIZE = 96,       /**< rows and columns of the face crop that is recognised */
    ORVO_FR_ALIGN_SIZE = 24,      /**< rows and columns of what the alignment network sees */
    ORVO_FR_FEATURE_LENGTH = 128, /**< floats in a feature */
    ORVO_FR_FEATURE_BYTES = 512,  /**< bytes in a feature */
    ORVO_FR_MEMORY_SIZE = 1410052 /**< what OrvoFrGetMemorySize() returns */
};

/** One plane of 8-bit grey levels. The library only reads it. */
typedef struct FrImage {
    const uint8_t* addr; /**< first pixel of the top row */
    int32_t height;      /**< rows; must be 256 */
    int32_t width;       /**< pixels per row; must be 256 */
    int32_t stride;      /**< bytes from one row's start to the next; at least 256 */
} FrImage;

/**
 * Deciphers both models in place, once per process.
 *
 * @return ORVO_FR_OK; ORVO_FR_REPEAT_INIT if it has succeeded before (nothing is done then);
 *         ORVO_FR_NOT_DECRYPTED if a model's key could not be unwrapped or its key material could
 *         not be wiped. After a failure past the unwrapping of the first key the arrays may be
 *         plain already, and the library stays unusable until the process restarts.
 */
ORVO_API int32_t OrvoFrInit(void) ORVO_CHECK_RESULT;

/** @return the size in bytes of the working memory, always 1410052. */
ORVO_API uint32_t OrvoFrGetMemorySize(void);

/**
 * Hands the working memory to the core and fills the bilinear weight table.
 *
 * The block stays the caller's and must outlive every later OrvoFrRun(). It may lie at any
 * address, odd ones included. A second call with another block moves every region to it.
 *
 * @param addr  the block; null is refused with ORVO_FR_NULL_ADDRESS
 * @param size  its size; anything but OrvoFrGetMemorySize() is refused with ORVO_FR_WRONG_SIZE
 * @return ORVO_FR_OK, or one of the two above; a refusal changes no state
 */
ORVO_API int32_t OrvoFrSetMemory(void* addr, uint32_t size) ORVO_CHECK_RESULT;

/**
 * Computes the feature of one face picture.
 *
 * The alignment network looks at the picture reduced to 24 x 24 and answers with a box; the box,
 * resized to 96 x 96, goes through the recognition network. The box is read with a row pitch of 256
 * bytes whatever @p img's stride is. A box that is not empty and whose bytes are all the picture's
 * is taken corner for corner, also where its left edge lies outside: its columns there are the end
 * of the row above. Any other is cut to the picture, and one that is empty after that is replaced
 * by the whole picture, so nothing outside the picture is ever read.
 *
 * No run makes a system call, the first one included, except to report a failure.
 *
 * Not checked: whether OrvoFrInit() has run. Without it the feature is meaningless.
 *
 * @param img         256 x 256 grey picture, only read
 * @param result      receives 128 floats of unit Euclidean length (every element is a quiet
 *                    not-a-number should all 128 network outputs be 0); must not overlap the
 *                    picture or the working memory
 * @param resultSize  bytes at @p result; must be exactly 512
 * @return ORVO_FR_OK; ORVO_FR_NULL_ADDRESS; ORVO_FR_WRONG_SIZE. After a refused argument every
 *         buffer is untouched.
 */
ORVO_API int32_t OrvoFrRun(const FrImage* img, void* result, uint32_t resultSize) ORVO_CHECK_RESULT;

/** The argument check of OrvoFrRun(), with its messages and status codes. */
ORVO_API int32_t CheckInput(const FrImage* img, const void* result, uint32_t resultSize);

/**
 * The distance of two features: their inner product, 1 for identical faces, larger for more alike.
 *
 * @param a,b          128 floats each, at float alignment
 * @param aSize,bSize  sizes in bytes. They are only compared with each other and with 0; whatever
 *                     equal sizes are given, exactly 128 floats are read.
 * @return the inner product; 0.0 with a message if an address is null, a size is 0 or they differ
 */
ORVO_API float OrvoFrGetDistance(const float* a, uint32_t aSize, const float* b, uint32_t bSize);

/** The inner product of two features of 128 floats, unchecked. */
ORVO_API float FrCompare(const float* a, const float* b) ORVO_NONNULL;

/**
 * The name of the instruction set whose inner routines the kernels use, such as "plain" or
 * "avx512vnni". It is chosen when it is first needed, at the latest by OrvoFrSetMemory(): the best
 * that the machine has, or the one named by the environment variable ORVO_FR_PATH. Where the
 * machine does not have that one, a line on standard error says so once and the best is taken.
 * Results are the same bytes with every one. Any thread may ask at any time. @return a static
 * string
 *
 * "amx" needs the operating system's permission, for which Linux is asked when it is chosen. The
 * permission is the whole process's and stays: from then on a signal's frame may take 8 KB more,
 * and sigaltstack() refuses stacks that are too small for it. Where some thread has such a stack
 * already the permission is refused and the best other path chosen. A process that wants none of
 * this names another path, such as ORVO_FR_PATH=avx512vnni, and the permission is not asked for.
 */
ORVO_API const char* OrvoFrGetInstructionSet(void);

/** Deciphers the alignment model in place; OrvoFrInit() alone calls it. @return 0; 1 on failure */
ORVO_API int32_t AlignDecrypt(void);

/** Deciphers the recognition model in place; as AlignDecrypt(). */
ORVO_API int32_t FrDecrypt(void);

/**
 * Runs the alignment network.
 *
 * @param input  24 x 24 grey levels; overwritten in place with their Q7 form (each byte XOR 0x80)
 *
 * The answer, four signed bytes in units of 2 pixels (left, top, right, bottom; right and bottom
 * exclusive), is left at AlignGetOutput(). Writes 38408 bytes at most at the workspace and 76032
 * at most at the inner buffer.
 */
ORVO_API void AlignRun(uint8_t* input) ORVO_NONNULL;

/** @return where the alignment network left its answer: g_alignInnerBuf + g_alignResOffset */
ORVO_API int8_t* AlignGetOutput(void);

/** Sets g_alignWorkspace: 38408 bytes of scratch, any alignment. */
ORVO_API void AlignSetWorkspace(void* addr);

/** Sets g_alignInnerBuf: 76032 bytes of layer outputs, any alignment. */
ORVO_API void AlignSetInnerbuf(void* addr);

/**
 * Runs the recognition network.
 *
 * @param input  three planes of 96 x 96 grey levels; overwritten in place with their Q7 form
 *
 * The feature is left in g_frResult. Writes 497668 bytes at most at the workspace and 884736 at
 * most at the inner buffer.
 */
ORVO_API void FrRun(uint8_t* input) ORVO_NONNULL;

/** @return the address of g_frResult */
ORVO_API float* FrGetOutput(void);

/** Sets g_frWorkspace: 497668 bytes of scratch, any alignment. */
ORVO_API void FrSetWorkspace(void* addr);

/** Sets g_frInnerBuf: 884736 bytes of layer outputs, any alignment. */
ORVO_API void FrSetInnerbuf(void* addr);

/*
 * The core's module state, all zero at load. It is read anew in every call, so that a caller who
 * drives a network directly may point it at buffers of its own between calls.
 */
ORVO_API extern uint32_t g_frInited;         /**< 1 once OrvoFrInit() has succeeded */
ORVO_API extern int8_t* g_alignWorkspace;    /**< scratch of the alignment network */
ORVO_API extern int8_t* g_alignInnerBuf;     /**< layer outputs of the alignment network */
ORVO_API extern int32_t g_alignResOffset;    /**< where in g_alignInnerBuf the answer lies */
ORVO_API extern int8_t* g_frWorkspace;       /**< scratch of the recognition network */
ORVO_API extern int8_t* g_frInnerBuf;        /**< layer outputs of the recognition network */
ORVO_API extern uint8_t* g_frInnerImage;     /**< network inputs; null until OrvoFrSetMemory() */
ORVO_API extern uint32_t g_frInnerImageSize; /**< bytes at g_frInnerImage: 27648 */
ORVO_API extern float g_frResult[128];       /**< the recognition network's feature */

ORVO_C_END

#endif
