/* SPDX-License-Identifier: MIT */
/*
 * Faces in a whole picture, and what the recogniser makes of them: prints a line for each face that
 * is good enough to be recognised, with its box and how alike the best face and it are.
 *
 *     find_faces PICTURE      a PNG or a binary PGM of any size
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <orvo/orvo_find.h>
#include <orvo/orvo_fr.h>

#include "picture.h"

enum { MOST_FACES = 16 };

/* Both libraries, each with working memory of its own. */
static int start(const OrvoFindPicture* whole, int32_t smallest, void** memory, void** core) {
    const uint32_t size = OrvoFindGetMemorySize(whole->width, whole->height, smallest);
    if (size == 0) {
        fputs("find_faces: the picture is too small or too large\n", stderr);
        return 0;
    }
    *memory = malloc(size);
    *core = malloc(OrvoFrGetMemorySize());
    return *memory != NULL && *core != NULL && OrvoFrInit() == ORVO_FR_OK &&
           OrvoFrSetMemory(*core, OrvoFrGetMemorySize()) == ORVO_FR_OK &&
           OrvoFindInit() == ORVO_FIND_OK && OrvoFindSetMemory(*memory, size) == ORVO_FIND_OK;
}

int main(int count, char** arguments) {
    static OrvoFindFace faces[MOST_FACES];
    static float features[MOST_FACES][ORVO_FIND_FEATURE_LENGTH];
    OrvoFindPicture whole;
    picture file;
    void* memory = NULL;
    void* core = NULL;
    int32_t found = 0, i;
    int status = 1;
    if (count != 2) {
        fputs("usage: find_faces PICTURE\n", stderr);
        return 2;
    }
    if (picture_load(arguments[1], &file) != 0) {
        return 1;
    }
    whole.addr = file.pixels;
    whole.width = whole.stride = file.width;
    whole.height = file.height;
    if (start(&whole, ORVO_FIND_SMALLEST, &memory, &core) &&
        OrvoFindMirroredFeatures(&whole, ORVO_FIND_SMALLEST, faces, features[0], MOST_FACES,
                                 &found) == ORVO_FIND_OK) {
        status = 0;
        for (i = 0; i < found; ++i) {
            const OrvoFindFace* face = &faces[i];
            if (face->quality >= ORVO_FIND_GOOD) {
                printf("%g %g %g quality %d alike %.9g\n", face->left, face->top, face->side,
                       (int)face->quality,
                       OrvoFrGetDistance(features[0], sizeof features[0], features[i],
                                         sizeof features[i]));
            }
        }
        printf("%d found\n", (int)found);
    }
    free(core);
    free(memory);
    free(file.pixels);
    return status;
}
