/* SPDX-License-Identifier: MIT */
/*
 * A camera's frames one after the other: is the person that is known in front of it? Frames that are not worth
 * comparing are passed over, and a single frame decides nothing.
 *
 *     camera_loop KNOWN THRESHOLD     frames on standard input, binary PGM one after another:
 *
 *     ffmpeg -i VIDEO -vf scale=640:-2 -f image2pipe -c:v pgm - | camera_loop known.png 0.45
 *
 * KNOWN is a PNG or PGM picture in which the largest face is the person's. Prints a line when somebody comes
 * and goes, with the number of the frame. What to take for a threshold: docs/THRESHOLDS.md. A picture
 * held in front of the camera is taken for the person: this opens no door.
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <orvo/orvo_find.h>
#include <orvo/orvo_fr.h>

#include "picture.h"

enum {
    MOST_FACES = 4,
    FRAMES_TO_COME = 3, /* in a row that are alike */
    FRAMES_TO_GO = 10   /* in a row without */
};

/* The finder's memory grows with the frames. */
typedef struct {
    void* memory;
    uint32_t size;
} block;

/* The features of the faces that are good enough; returns how many, or -1. */
static int look(const picture* file, block* memory,
                float features[MOST_FACES][ORVO_FIND_FEATURE_LENGTH]) {
    const OrvoFindPicture whole = {file->pixels, file->width, file->height, file->width};
    const uint32_t size = OrvoFindGetMemorySize(file->width, file->height, ORVO_FIND_SMALLEST);
    OrvoFindFace faces[MOST_FACES];
    int32_t count = 0, i, good = 0, j;
    if (size == 0) {
        fputs("camera_loop: a frame is too small or too large\n", stderr);
        return -1;
    }
    if (size > memory->size) {
        free(memory->memory);
        memory->memory = malloc(size);
        memory->size = memory->memory == NULL ? 0 : size;
        if (memory->memory == NULL || OrvoFindSetMemory(memory->memory, size) != ORVO_FIND_OK) {
            return -1;
        }
    }
    if (OrvoFindFeatures(&whole, ORVO_FIND_SMALLEST, faces, features[0], MOST_FACES, &count) !=
        ORVO_FIND_OK) {
        return -1;
    }
    for (i = 0; i < count; ++i) {
        if (faces[i].quality >= ORVO_FIND_GOOD) {
            for (j = 0; j < ORVO_FIND_FEATURE_LENGTH; ++j) {
                features[good][j] = features[i][j];
            }
            ++good;
        }
    }
    return good;
}

static int learn(const char* path, block* memory, float* known) {
    float features[MOST_FACES][ORVO_FIND_FEATURE_LENGTH];
    picture file;
    int j, good;
    if (picture_load(path, &file) != 0) {
        return -1;
    }
    good = look(&file, memory, features);
    free(file.pixels);
    if (good < 1) {
        fprintf(stderr, "%s: no face that is good enough\n", path);
        return -1;
    }
    for (j = 0; j < ORVO_FIND_FEATURE_LENGTH; ++j) {
        known[j] = features[0][j]; /* the best face comes first */
    }
    return 0;
}

/* Frames until the stream ends. Returns whether it ended as it should. */
static int watch(const float* known, double threshold, block* memory) {
    float features[MOST_FACES][ORVO_FIND_FEATURE_LENGTH];
    picture frame;
    unsigned long number = 0;
    int alike = 0, without = 0, isThere = 0, status, i;
    while ((status = picture_next(stdin, "standard input", &frame)) == 0) {
        double best = -1;
        const int good = look(&frame, memory, features);
        free(frame.pixels);
        if (good < 0) {
            return 0;
        }
        for (i = 0; i < good; ++i) {
            const double distance = (double)OrvoFrGetDistance(known, ORVO_FR_FEATURE_BYTES,
                                                              features[i], ORVO_FR_FEATURE_BYTES);
            best = distance > best ? distance : best;
        }
        ++number;
        alike = best >= threshold ? alike + 1 : 0;
        without = best >= threshold ? 0 : without + 1;
        if (!isThere && alike >= FRAMES_TO_COME) {
            isThere = 1;
            printf("frame %lu: here (%.3f)\n", number, best);
        } else if (isThere && without >= FRAMES_TO_GO) {
            isThere = 0;
            printf("frame %lu: gone\n", number);
        }
        fflush(stdout);
    }
    printf("%lu frames\n", number);
    return status == 1;
}

int main(int count, char** arguments) {
    static uint8_t core[ORVO_FR_MEMORY_SIZE];
    float known[ORVO_FIND_FEATURE_LENGTH];
    block memory = {NULL, 0};
    char* end = NULL;
    const double threshold = count == 3 ? strtod(arguments[2], &end) : 0;
    int isFine;
    if (count != 3 || end == arguments[2] || *end != '\0') {
        fputs("usage: camera_loop KNOWN THRESHOLD <FRAMES.pgm\n", stderr);
        return 2;
    }
    isFine = OrvoFrInit() == ORVO_FR_OK && OrvoFrSetMemory(core, sizeof core) == ORVO_FR_OK &&
             OrvoFindInit() == ORVO_FIND_OK && learn(arguments[1], &memory, known) == 0 &&
             watch(known, threshold, &memory);
    free(memory.memory);
    return !isFine;
}
