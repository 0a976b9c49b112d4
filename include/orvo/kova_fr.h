/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The device API: face features from frames in the camera's media memory.
 *
 * Order of calls: kova_fr_init() once, then any number of kova_fr_extract_obj_feature() and
 * kova_fr_get_distance(), then kova_fr_deinit(). kova_fr_init() may follow kova_fr_deinit().
 *
 * Threads: any thread may call any function at any time. One process-wide mutex is held for the
 * whole body of each call after its argument checks.
 *
 * Errors: every function returns 0 or a code below, or the platform's own code where it says so.
 * Each failure writes a diagnostic to standard error: first "[Func]:%s [Line]:%d [Info]:", then the
 * message.
 */
#ifndef ORVO_KOVA_FR_H
#define ORVO_KOVA_FR_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

#define KOVA_FR_OK 0u
#define KOVA_FR_ERR_ILLEGAL_PARAM 0xa03f8003u /**< a length, size or image field is out of range */
#define KOVA_FR_ERR_EXIST 0xa03f8004u         /**< already initialised */
#define KOVA_FR_ERR_UNEXIST 0xa03f8005u       /**< not initialised */
#define KOVA_FR_ERR_NULL_PTR 0xa03f8006u      /**< null pointer, or a frame that cannot be mapped */
#define KOVA_FR_ERR_NOT_READY 0xa03f8008u     /**< the core could not be initialised */
#define KOVA_FR_ERR_NOMEM 0xa03f800cu         /**< no memory, or the core refused the block */
#define KOVA_FR_ERR_RUN 0xa03f8041u           /**< the recognition run failed */

/** Elements of a feature. Lengths in this interface count elements, not bytes. */
#define KOVA_FR_FEATURE_LEN 128

/** One face picture: an 8-bit luma plane in media memory. */
typedef struct obj_img {
    uint64_t phy_addr; /**< physical address of the plane; not 0 */
    uint64_t vir_addr; /**< user-space address of the same plane; not 0 when mem_type is 1 */
    uint32_t stride;   /**< bytes from one row to the next; at least width */
    uint32_t width;    /**< pixels per row: even, at least 16 */
    uint32_t height;   /**< rows: even, at least 12 */
    uint32_t pool_id;  /**< the platform's buffer pool; handed to the scaler uninterpreted */
    uint32_t mem_type; /**< 0: the library maps phy_addr itself; 1: it may use vir_addr */
} obj_img;

/**
 * Deciphers the models and allocates the working memory (1410052 bytes of cached media memory
 * named "FR_MEM").
 *
 * @return 0; KOVA_FR_ERR_EXIST; KOVA_FR_ERR_NOT_READY; KOVA_FR_ERR_NOMEM. A failure leaves the
 *         state as it was.
 */
ORVO_API uint32_t kova_fr_init(void) ORVO_CHECK_RESULT;

/**
 * Frees the working memory. The models stay deciphered for the life of the process.
 *
 * @return 0; KOVA_FR_ERR_UNEXIST; or the platform's own code if the block could not be freed, in
 *         which case the library stays initialised
 */
ORVO_API uint32_t kova_fr_deinit(void);

/**
 * The distance of two features: their inner product, 1 for identical faces, larger for more alike.
 *
 * @param feature_a,feature_b          128 floats each
 * @param feature_a_len,feature_b_len  element counts; each must be 128
 * @param result                       receives the distance
 * @return 0; KOVA_FR_ERR_NULL_PTR; KOVA_FR_ERR_ILLEGAL_PARAM; KOVA_FR_ERR_UNEXIST
 */
ORVO_API uint32_t kova_fr_get_distance(const float* feature_a, int32_t feature_a_len,
                                       const float* feature_b, int32_t feature_b_len,
                                       float* result) ORVO_CHECK_RESULT;

/**
 * Computes the feature of one face picture.
 *
 * A 256 x 256 picture is used where it lies (mapped first when mem_type is 0). Any other size is
 * stretched to 256 x 256 by the hardware scaler into a temporary 65536-byte buffer named
 * "FR_RESIZE". With mem_type 1 and 256 x 256 no platform call is made at all: the fast path.
 * With mem_type 0 and 256 x 256 the frame must be shorter than 2^32 bytes, the platform's longest
 * mapping; of a longer one what could be mapped is given back and KOVA_FR_ERR_RUN returned.
 *
 * @param img          the picture; only read
 * @param feature_len  elements at @p feature; must be 128
 * @param feature      receives 128 floats of unit length, only if 0 is returned
 * @return 0; KOVA_FR_ERR_NULL_PTR; KOVA_FR_ERR_ILLEGAL_PARAM; KOVA_FR_ERR_UNEXIST;
 *         KOVA_FR_ERR_RUN; or the platform's own code if allocating or scaling failed
 */
ORVO_API uint32_t kova_fr_extract_obj_feature(const obj_img* img, uint32_t feature_len,
                                              float* feature) ORVO_CHECK_RESULT;

ORVO_C_END

#endif
