/* SPDX-License-Identifier: MIT */
/*
 * How alike are the faces of two pictures? The whole way that an application on a camera goes: a
 * frame in media memory, its feature, the distance of two features.
 *
 *     face_distance A B
 *
 * A picture is a PNG or a binary PGM file of any size from 16 x 12 on, or 256 x 256 grey levels without a
 * header. The face should fill most of it.
 */
#include <orvo/kova_fr.h>
#include <orvo/kova_mpi.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "picture.h"

/*
 * One plane of grey levels in media memory, uncached: the scaler reads memory itself and would miss
 * what is still in the processor's cache. A camera's frames are there already.
 */
static int frame_open(obj_img* frame, uint32_t width, uint32_t height) {
    void* address = NULL;
    frame->width = width;
    frame->height = height;
    frame->stride = width;
    frame->pool_id = 0;
    frame->mem_type = 1; /* vir_addr may be used: no mapping for each call */
    if (KOVA_MPI_SYS_MmzAlloc(&frame->phy_addr, &address, "FACE", NULL, width * height) != 0) {
        return -1;
    }
    frame->vir_addr = (uintptr_t)address;
    return 0;
}

static void frame_close(const obj_img* frame) {
    KOVA_MPI_SYS_MmzFree(frame->phy_addr, (void*)(uintptr_t)frame->vir_addr);
}

/* The library wants even sizes: an odd last column or row is left out. */
static int frame_load(obj_img* frame, const char* path) {
    picture from;
    uint32_t row;
    if (picture_load(path, &from) != 0) {
        return -1;
    }
    if (frame_open(frame, (uint32_t)from.width & ~1u, (uint32_t)from.height & ~1u) != 0) {
        fprintf(stderr, "%s: too little media memory, or the picture is too small\n", path);
        free(from.pixels);
        return -1;
    }
    for (row = 0; row < frame->height; ++row) {
        memcpy((uint8_t*)(uintptr_t)frame->vir_addr + (size_t)row * frame->stride,
               from.pixels + (size_t)row * (size_t)from.width, frame->width);
    }
    free(from.pixels);
    return 0;
}

static int feature_of(const char* path, float feature[KOVA_FR_FEATURE_LEN]) {
    obj_img frame;
    uint32_t status;
    if (frame_load(&frame, path) != 0) {
        return -1;
    }
    status = kova_fr_extract_obj_feature(&frame, KOVA_FR_FEATURE_LEN, feature);
    frame_close(&frame);
    if (status != KOVA_FR_OK) {
        fprintf(stderr, "%s: no feature (status 0x%x)\n", path, (unsigned)status);
        return -1;
    }
    return 0;
}

int main(int count, char** arguments) {
    float a[KOVA_FR_FEATURE_LEN], b[KOVA_FR_FEATURE_LEN], distance = 0;
    int failed;
    if (count != 3) {
        fprintf(stderr, "usage: face_distance A B\n");
        return 2;
    }
    if (kova_fr_init() != KOVA_FR_OK) {
        return 1;
    }
    failed = feature_of(arguments[1], a) || feature_of(arguments[2], b) ||
             kova_fr_get_distance(a, KOVA_FR_FEATURE_LEN, b, KOVA_FR_FEATURE_LEN, &distance);
    if (!failed) {
        printf("%.9g\n", (double)distance);
    }
    return kova_fr_deinit() != KOVA_FR_OK || failed;
}
