/* SPDX-License-Identifier: MIT */
/*
 * Faces in a whole picture, and what the recogniser makes of them: prints a line for each face that
 * is good enough to be recognised, with its box and how alike the best face and it are.
 *
 *     find_faces PICTURE      a binary PGM of any size
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <orvo/orvo_find.h>
#include <orvo/orvo_fr.h>

enum { MOST_FACES = 16, GOOD_ENOUGH = 20 };

static uint8_t* load(const char* path, OrvoFindPicture* picture) {
    FILE* file = fopen(path, "rb");
    int width = 0, height = 0;
    uint8_t* pixels = NULL;
    if (file == NULL) {
        return NULL;
    }
    if (fscanf(file, "P5 %d %d 255", &width, &height) == 2 && fgetc(file) != EOF && width > 0 &&
        width <= ORVO_FIND_MOST_SIDE && height > 0 && height <= ORVO_FIND_MOST_SIDE) {
        const size_t size = (size_t)width * (size_t)height;
        pixels = malloc(size);
        if (pixels != NULL && fread(pixels, 1, size, file) != size) {
            free(pixels);
            pixels = NULL;
        }
    }
    fclose(file);
    picture->addr = pixels;
    picture->width = width;
    picture->height = height;
    picture->stride = width;
    return pixels;
}

/* Both libraries, each with working memory of its own. */
static int start(const OrvoFindPicture* picture, int32_t smallest, void** memory, void** core) {
    const uint32_t size = OrvoFindGetMemorySize(picture->width, picture->height, smallest);
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
    OrvoFindPicture picture;
    uint8_t* pixels;
    void* memory = NULL;
    void* core = NULL;
    int32_t found = 0, i;
    int status = 1;
    if (count != 2) {
        fputs("usage: find_faces PICTURE.pgm\n", stderr);
        return 2;
    }
    pixels = load(arguments[1], &picture);
    if (pixels == NULL) {
        fprintf(stderr, "find_faces: %s: cannot be read as a picture\n", arguments[1]);
        return 1;
    }
    if (start(&picture, ORVO_FIND_SMALLEST, &memory, &core) &&
        OrvoFindFeatures(&picture, ORVO_FIND_SMALLEST, faces, features[0], MOST_FACES, &found) ==
            ORVO_FIND_OK) {
        status = 0;
        for (i = 0; i < found; ++i) {
            const OrvoFindFace* face = &faces[i];
            if (face->quality >= GOOD_ENOUGH) {
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
    free(pixels);
    return status;
}
