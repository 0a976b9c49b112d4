/* SPDX-License-Identifier: MIT */
/*
 * Who of many is it? The features of all pictures but the first are the gallery, in which the first one's
 * is searched by two threads, each in a half of its own.
 *
 *     search_faces WHO PICTURE...     PNG or binary PGM of 256 x 256, a face that fills each
 *
 * Prints the best five, best first, with the distance that OrvoFrGetDistance() gives.
 */
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <orvo/orvo_fr.h>
#include <orvo/orvo_search.h>

#include "picture.h"

enum { LENGTH = ORVO_SEARCH_FEATURE_LENGTH, ROOM = 5 };

/* What one thread looks through, and what it finds. */
typedef struct {
    const float *feature, *entries;
    uint32_t first, count;
    OrvoSearchMatch matches[ROOM];
    uint32_t found;
    int32_t status;
} part;

static void* search_part(void* argument) {
    part* p = argument;
    p->status = OrvoSearchBest(p->feature, p->entries + (size_t)p->first * LENGTH, p->count,
                               p->first, p->matches, ROOM, &p->found);
    return NULL;
}

/* The best of all entries in `best`; returns how many, or -1. */
static int search(const float* feature, const float* entries, uint32_t count,
                  OrvoSearchMatch* best) {
    part upper = {0}, lower = {0};
    pthread_t thread;
    uint32_t found = 0;
    upper.feature = lower.feature = feature;
    upper.entries = lower.entries = entries;
    upper.count = count / 2;
    lower.first = upper.count;
    lower.count = count - upper.count;
    if (pthread_create(&thread, NULL, search_part, &lower) != 0) {
        return -1;
    }
    search_part(&upper);
    pthread_join(thread, NULL);
    if (upper.status != ORVO_SEARCH_OK || lower.status != ORVO_SEARCH_OK ||
        OrvoSearchMerge(best, ROOM, &found, upper.matches, upper.found) != ORVO_SEARCH_OK ||
        OrvoSearchMerge(best, ROOM, &found, lower.matches, lower.found) != ORVO_SEARCH_OK) {
        return -1;
    }
    return (int)found;
}

static int feature_of(const char* path, float* feature) {
    picture file;
    FrImage image = {NULL, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE};
    int32_t status;
    if (picture_load(path, &file) != 0) {
        return -1;
    }
    if (file.width != ORVO_FR_IMAGE_SIZE || file.height != ORVO_FR_IMAGE_SIZE) {
        fprintf(stderr, "%s: is not 256 x 256\n", path);
        free(file.pixels);
        return -1;
    }
    image.addr = file.pixels;
    status = OrvoFrRun(&image, feature, LENGTH * sizeof *feature);
    free(file.pixels);
    return status == ORVO_FR_OK ? 0 : -1;
}

int main(int count, char** arguments) {
    static uint8_t memory[ORVO_FR_MEMORY_SIZE];
    OrvoSearchMatch best[ROOM];
    float* features;
    int i, found;
    if (count < 3) {
        fputs("usage: search_faces WHO PICTURE...\n", stderr);
        return 2;
    }
    features = malloc((size_t)(count - 1) * LENGTH * sizeof *features);
    if (features == NULL || OrvoFrInit() != ORVO_FR_OK ||
        OrvoFrSetMemory(memory, sizeof memory) != ORVO_FR_OK) {
        free(features);
        return 1;
    }
    for (i = 1; i < count; ++i) {
        if (feature_of(arguments[i], features + (size_t)(i - 1) * LENGTH) != 0) {
            free(features);
            return 1;
        }
    }
    found = search(features, features + LENGTH, (uint32_t)(count - 2), best);
    for (i = 0; i < found; ++i) {
        printf("%.9g %s\n", (double)best[i].distance, arguments[2 + best[i].index]);
    }
    free(features);
    return found < 0;
}
