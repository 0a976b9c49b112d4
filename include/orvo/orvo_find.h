/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Faces in whole pictures: a grey picture of any size in, up to as many faces out as the caller has
 * room for, each with a box, five landmarks, a score, and how good it is to be recognised. It is a
 * library of its own, libkova_find, which works on libkova_fr's kernels and needs that beside it.
 *
 * Order of calls: OrvoFindInit() once in the life of the process; OrvoFindSetMemory() with a block
 * of OrvoFindGetMemorySize() bytes (before or after OrvoFindInit()); then OrvoFindRun(),
 * OrvoFindUpright(), OrvoFindFeatures() and OrvoFindMirroredFeatures() any number of times. The two
 * that give features need OrvoFrInit() and OrvoFrSetMemory(), too (orvo_fr.h); nothing else here
 * needs anything of those.
 *
 * Coordinates are continuous: the pixel in column i and row j covers i to i + 1 and j to j + 1, so
 * the top left corner of the picture is (0, 0) and its middle is (width / 2, height / 2).
 *
 * Results are the same bytes on every processor. Everything from the picture to the record is
 * integer arithmetic but the angle `roll` and the turning upright, whose floats are single
 * precision in a stated order. Mirrored features are sums in double precision, in a stated order.
 *
 * Memory: nothing is allocated and no thread is started. Pictures are only read, and of them only
 * `width` bytes of each row. The working memory, the pictures and what results are written to must
 * not overlap.
 *
 * Threads: the library keeps where its memory is in module-level variables and has no locks. One
 * call at a time; OrvoFindGetMemorySize() reads only its arguments and may run in any thread at any
 * time. What gives features uses the core's state, so while it runs there must be no other call of
 * orvo_fr.h, and none of kova_fr.h.
 *
 * Diagnostics: every failure prints one line to standard error, "[ERR] UNIT:LINE TEXT", where the
 * unit is a source file.
 */
#ifndef ORVO_ORVO_FIND_H
#define ORVO_ORVO_FIND_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/** Status codes. They have the values of the core's. */
enum {
    ORVO_FIND_OK = 0,            /**< success */
    ORVO_FIND_NULL_ADDRESS = 1,  /**< a required address is null, or no working memory was set */
    ORVO_FIND_WRONG_SIZE = 2,    /**< a size is wrong, or the working memory is too small for it */
    ORVO_FIND_NOT_DECRYPTED = 6, /**< the model is not plain: not opened yet, or it failed */
    ORVO_FIND_REPEAT_INIT = 7    /**< OrvoFindInit() had already succeeded; nothing was done */
};

enum {
    ORVO_FIND_LEAST_SIDE = 24,   /**< the smallest width or height of a picture */
    ORVO_FIND_MOST_SIDE = 8192,  /**< the largest */
    ORVO_FIND_SMALLEST = 20,     /**< a good answer to "how small is the smallest face?" */
    ORVO_FIND_GOOD = 30,         /**< a face of less quality is better refused, see OrvoFindFace */
    ORVO_FIND_MOST_LEVEL = 1280, /**< the largest side that the network looks at, see below */
    ORVO_FIND_CROP_SIZE = 96,    /**< rows and columns of an upright crop: the recogniser's */
    ORVO_FIND_FEATURE_LENGTH = 128 /**< floats in a feature */
};

/** Why a face is not good to be recognised: what alone takes more than half of the quality. */
enum {
    ORVO_FIND_SMALL = 1,       /**< too few pixels */
    ORVO_FIND_BLURRED = 2,     /**< out of focus, moved or smeared */
    ORVO_FIND_DARK = 4,        /**< too little light */
    ORVO_FIND_OVEREXPOSED = 8, /**< too much of it is white */
    ORVO_FIND_TURNED = 16,     /**< to the left or right */
    ORVO_FIND_TILTED = 32,     /**< up or down */
    ORVO_FIND_COVERED = 64,    /**< by hands, masks, hair, other people */
    ORVO_FIND_CUT_OFF = 128,   /**< by the border of the picture */
    ORVO_FIND_GRIMACING = 256  /**< the mouth is much wider or narrower than at rest */
};

/** One plane of 8-bit grey levels. */
typedef struct OrvoFindPicture {
    const uint8_t* addr; /**< first pixel of the top row */
    int32_t width;       /**< pixels per row; 24 to 8192 */
    int32_t height;      /**< rows; 24 to 8192 */
    int32_t stride;      /**< bytes from one row's start to the next; at least the width */
} OrvoFindPicture;

/** A place in the picture, in pixels. */
typedef struct OrvoFindPoint {
    float x, y;
} OrvoFindPoint;

/** A face that was found. Lengths are pixels of the picture, and exact: whole eighths, of points
 * whole sixteenths. */
typedef struct OrvoFindFace {
    float left, top, side; /**< the square box; it may leave the picture */
    float score;           /**< how sure it is that this is a face, 0 to 1 */
    /** Pupil at the left of an upright picture (the person's right eye) and pupil at the right, tip
     * of the nose, corner of the mouth at the left and at the right; they may leave the picture. */
    OrvoFindPoint points[5];
    float yaw;  /**< degrees; positive: the nose points to the right of the picture */
    float roll; /**< degrees, -180 to 180; positive: the head leans to the right of the picture */
    float covered;    /**< share of the face that something hides, 0 to 1 */
    int32_t quality;  /**< how good to be recognised, 0 to 100; ORVO_FIND_GOOD: good enough */
    uint32_t reasons; /**< why not: a sum of ORVO_FIND_SMALL and the others */
} OrvoFindFace;

/**
 * Deciphers the model in place, once per process.
 *
 * @return ORVO_FIND_OK; ORVO_FIND_REPEAT_INIT if it has succeeded before (nothing is done then);
 *         ORVO_FIND_NOT_DECRYPTED if the model's key could not be unwrapped or its key material not
 *         be wiped: the library then stays unusable until the process restarts
 */
ORVO_API int32_t OrvoFindInit(void) ORVO_CHECK_RESULT;

/**
 * The working memory that a picture needs. It grows with the picture and falls as `smallest` grows:
 * the network looks at the picture halved k times, where k is the largest with 18 * 2^k <= smallest
 * that leaves both sides at least 24 pixels, and then at every fourth of that. A block serves every
 * picture for which the answer is not more than its size.
 *
 * @param width,height  of the picture, 24 to 8192
 * @param smallest      side of the smallest face to be found, in pixels, at least 1; the smallest
 *                      that the network knows is 14
 * @return bytes; 0 if one of these is out of range or the picture, halved as said, has a side of
 *         more than ORVO_FIND_MOST_LEVEL pixels: a larger `smallest` helps
 */
ORVO_API uint32_t OrvoFindGetMemorySize(int32_t width, int32_t height, int32_t smallest);

/**
 * Hands working memory to the library. The block stays the caller's and must outlive every later
 * call that works in it. It may lie at any address, odd ones included. A second call replaces it.
 *
 * @param addr  the block; null is refused with ORVO_FIND_NULL_ADDRESS
 * @param size  its bytes; 0 is refused with ORVO_FIND_WRONG_SIZE. Whether it suffices is asked when
 *              the size of a picture is known.
 * @return ORVO_FIND_OK, or one of the two above; a refusal changes no state
 */
ORVO_API int32_t OrvoFindSetMemory(void* addr, uint32_t size) ORVO_CHECK_RESULT;

/**
 * Finds the faces in a picture.
 *
 * @param picture   only read
 * @param smallest  side of the smallest face to be found, see OrvoFindGetMemorySize()
 * @param faces     receives the faces, best score first; may be null if room is 0
 * @param room      faces that there is room for, 0 and more; where more are found, those with the
 *                  best scores are taken. What lies behind the last face stays as it was.
 * @param count     receives the number of faces written
 * @return ORVO_FIND_OK, also where there is no face; ORVO_FIND_NULL_ADDRESS; ORVO_FIND_WRONG_SIZE;
 *         ORVO_FIND_NOT_DECRYPTED. After a refusal every buffer is untouched.
 */
ORVO_API int32_t OrvoFindRun(const OrvoFindPicture* picture, int32_t smallest, OrvoFindFace* faces,
                             int32_t room, int32_t* count) ORVO_CHECK_RESULT;

/**
 * Cuts a face out of the picture it was found in, turned upright by its landmarks, as the
 * recogniser takes it. The crop is as large as the box and has the same middle. Beyond the
 * picture's borders its outermost pixels are repeated.
 *
 * The picture is halved until a pixel of the crop is at most 1.5 pixels wide, and sampled by
 * AffineWarpFloat() (image_tools.h); values are rounded half up.
 *
 * @param picture  only read
 * @param face     of which only the box and the points are read; it need not come from
 *                 OrvoFindRun(). Numbers must be finite and at most 65536 in size, the side at
 *                 least 1 and at most 64 times the picture's smaller side; else
 *                 ORVO_FIND_WRONG_SIZE.
 * @param crop     receives 96 rows of 96 grey levels
 * @return as OrvoFindRun(); that the model is plain is not needed. Working memory that suffices for
 *         OrvoFindRun() with the same picture suffices, whatever `smallest` was.
 */
ORVO_API int32_t OrvoFindUpright(const OrvoFindPicture* picture, const OrvoFindFace* face,
                                 uint8_t crop[ORVO_FIND_CROP_SIZE * ORVO_FIND_CROP_SIZE])
    ORVO_CHECK_RESULT;

/**
 * OrvoFindRun() and, for each face, what the recogniser makes of its upright crop: from a whole
 * picture to features that OrvoFrGetDistance() compares. All faces get one, good or not: what
 * quality is enough is the caller's decision.
 *
 * @param features  receives 128 floats a face, in the order of the faces; may be null if room is 0
 *
 * The other arguments are those of OrvoFindRun().
 *
 * @return as OrvoFindRun(); ORVO_FIND_NULL_ADDRESS also if OrvoFrSetMemory() has not succeeded, and
 *         ORVO_FIND_NOT_DECRYPTED if OrvoFrInit() has not
 */
ORVO_API int32_t OrvoFindFeatures(const OrvoFindPicture* picture, int32_t smallest,
                                  OrvoFindFace* faces, float* features, int32_t room,
                                  int32_t* count) ORVO_CHECK_RESULT;

/**
 * OrvoFindFeatures() for twice the recogniser's time and fewer mistakes: each feature is the mean
 * direction of what the recogniser makes of the upright crop and of the mirror image of another,
 * which has the same middle and is a tenth larger. Features of both functions may be compared with
 * each other; docs/THRESHOLDS.md says what it gains.
 *
 * The sums are double precision in the order of the floats, so these features, too, are the same
 * bytes on every processor. Should the two be opposite, the feature is that of the first.
 *
 * The arguments and what is returned are those of OrvoFindFeatures().
 */
ORVO_API int32_t OrvoFindMirroredFeatures(const OrvoFindPicture* picture, int32_t smallest,
                                          OrvoFindFace* faces, float* features, int32_t room,
                                          int32_t* count) ORVO_CHECK_RESULT;

ORVO_C_END

#endif
