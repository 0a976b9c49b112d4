/* SPDX-License-Identifier: MIT */
/*
 * How alike are the faces of two pictures? The whole way that an application on a camera goes: a
 * frame in media memory, its feature, the distance of two features.
 *
 *     face_distance A B
 *
 * A picture is a binary PGM file of any size from 16 x 12 on, or 256 x 256 grey levels without a
 * header. The face should fill most of it.
 */
#include <orvo/kova_fr.h>
#include <orvo/kova_mpi.h>
#include <stdio.h>

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
    unsigned width = 0, height = 0, white = 0, row = 0;
    FILE* file = fopen(path, "rb");
    if (file == NULL) {
        return -1;
    }
    if (fscanf(file, "P5 %u %u %u", &width, &height, &white) == 3) {
        fgetc(file); /* one white space ends a PGM header */
    } else {
        rewind(file);
        width = height = 256;
    }
    if (width <= 8192 && height <= 8192 && frame_open(frame, width & ~1u, height & ~1u) == 0) {
        uint8_t* pixels = (uint8_t*)(uintptr_t)frame->vir_addr;
        while (row < frame->height &&
               fread(pixels + (size_t)row * frame->stride, 1, frame->width, file) == frame->width &&
               fseek(file, (long)(width - frame->width), SEEK_CUR) == 0) {
            ++row;
        }
        if (row < frame->height) {
            frame_close(frame);
        }
    }
    fclose(file);
    return row > 0 && row == frame->height ? 0 : -1;
}

static int feature_of(const char* path, float feature[KOVA_FR_FEATURE_LEN]) {
    obj_img frame;
    uint32_t status;
    if (frame_load(&frame, path) != 0) {
        fprintf(stderr, "%s: cannot be read as a picture\n", path);
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
