/* SPDX-License-Identifier: MIT */
/*
 * An application with names of its own that libkova_fr has, too (own_names.c). It finds, recognises and
 * compares, and prints what it gets, so that it can be compared with what a program without such names
 * gets (WITHOUT_OWN_NAMES).
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <orvo/orvo_find.h>
#include <orvo/orvo_fr.h>

/* In own_names.c. */
#ifdef WITHOUT_OWN_NAMES
static int call_own_names(void) { return 1; }
#else
int call_own_names(void);
#endif

enum { WIDTH = 160, HEIGHT = 120, ROOM = 3 };

static void print_words(const float* values, size_t count) {
    size_t i;
    for (i = 0; i < count; ++i) {
        uint32_t word;
        memcpy(&word, &values[i], sizeof word);
        printf("%08lx%c", (unsigned long)word, i % 16 == 15 ? '\n' : ' ');
    }
}

static int recognise(float* feature) {
    static uint8_t pixels[256 * 256];
    const FrImage image = {pixels, 256, 256, 256};
    void* memory = malloc(OrvoFrGetMemorySize());
    size_t i;
    int done;
    for (i = 0; i < sizeof pixels; ++i) {
        pixels[i] = (uint8_t)((i * i >> 7) ^ (i >> 3));
    }
    done = memory != NULL && OrvoFrInit() == ORVO_FR_OK &&
           OrvoFrSetMemory(memory, OrvoFrGetMemorySize()) == ORVO_FR_OK &&
           OrvoFrRun(&image, feature, ORVO_FR_FEATURE_LENGTH * sizeof(float)) == ORVO_FR_OK;
    free(memory);
    return done;
}

static int find(int32_t* count) {
    static uint8_t pixels[WIDTH * HEIGHT];
    const OrvoFindPicture picture = {pixels, WIDTH, HEIGHT, WIDTH};
    const uint32_t size = OrvoFindGetMemorySize(WIDTH, HEIGHT, ORVO_FIND_SMALLEST);
    void* memory = malloc(size);
    OrvoFindFace faces[ROOM];
    const int done = memory != NULL && OrvoFindInit() == ORVO_FIND_OK &&
                     OrvoFindSetMemory(memory, size) == ORVO_FIND_OK &&
                     OrvoFindRun(&picture, ORVO_FIND_SMALLEST, faces, ROOM, count) == ORVO_FIND_OK;
    free(memory);
    return done;
}

int main(void) {
    float feature[ORVO_FR_FEATURE_LENGTH];
    int32_t count = -1;
    if (!recognise(feature) || !find(&count) || !call_own_names()) {
        return 1;
    }
    print_words(feature, ORVO_FR_FEATURE_LENGTH);
    printf("%d faces, alike %.9g\n", (int)count,
           OrvoFrGetDistance(feature, sizeof feature, feature, sizeof feature));
    return 0;
}
