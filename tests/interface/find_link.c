/* SPDX-License-Identifier: MIT */
/* A program in C on both libraries: a picture in, features out. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <orvo/orvo_find.h>
#include <orvo/orvo_fr.h>

enum { WIDTH = 160, HEIGHT = 120, ROOM = 3 };

int main(void) {
    static uint8_t pixels[WIDTH * HEIGHT];
    const OrvoFindPicture picture = {pixels, WIDTH, HEIGHT, WIDTH};
    OrvoFindFace faces[ROOM];
    float features[ROOM * ORVO_FIND_FEATURE_LENGTH];
    int32_t count = -1;
    const uint32_t size = OrvoFindGetMemorySize(WIDTH, HEIGHT, ORVO_FIND_SMALLEST);
    void* memory = malloc(size);
    void* core = malloc(OrvoFrGetMemorySize());
    int status = 1;
    if (memory != NULL && core != NULL && OrvoFrInit() == ORVO_FR_OK &&
        OrvoFrSetMemory(core, OrvoFrGetMemorySize()) == ORVO_FR_OK &&
        OrvoFindInit() == ORVO_FIND_OK && OrvoFindSetMemory(memory, size) == ORVO_FIND_OK &&
        OrvoFindFeatures(&picture, ORVO_FIND_SMALLEST, faces, features, ROOM, &count) ==
            ORVO_FIND_OK &&
        OrvoFindMirroredFeatures(&picture, ORVO_FIND_SMALLEST, faces, features, ROOM, &count) ==
            ORVO_FIND_OK &&
        count >= 0 && count <= ROOM) {
        printf("%d faces\n", (int)count);
        status = 0;
    }
    free(memory);
    free(core);
    return status;
}
