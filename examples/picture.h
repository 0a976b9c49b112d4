/* SPDX-License-Identifier: MIT */
/* Pictures from files, as grey levels: what the examples share. */
#ifndef PICTURE_H
#define PICTURE_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    uint8_t* pixels; /* width * height of them, to be freed with free() */
    int width, height;
} picture;

/*
 * Reads a PGM picture of one byte a pixel, with comments and any largest value; a PNG picture, where
 * PICTURE_PNG is defined; or 256 x 256 bytes without a header. Returns 0, or -1 and says on standard error
 * what is wrong with the file; "-" is standard input.
 */
int picture_load(const char* path, picture* to);

/* The same for the next of several PGM pictures in a stream. Returns 1 at its end. */
int picture_next(FILE* file, const char* name, picture* to);

#ifdef __cplusplus
}
#endif

#endif
