/* SPDX-License-Identifier: MIT */
#include "picture.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#ifdef PICTURE_PNG
#include <png.h>
#endif

enum { MOST_SIDE = 8192, BARE_SIDE = 256 };

static int refuse(const char* name, const char* reason) {
    fprintf(stderr, "%s: %s\n", name, reason);
    return -1;
}

/* A number of a PGM header, which white space and comments come before; -1 is none. */
static int header_number(FILE* file) {
    int number = 0, digits = 0;
    int c = fgetc(file);
    while (isspace(c) || c == '#') {
        if (c == '#') {
            while (c != '\n' && c != EOF) {
                c = fgetc(file);
            }
        }
        c = fgetc(file);
    }
    for (; isdigit(c) && number < 100000; ++digits, c = fgetc(file)) {
        number = 10 * number + (c - '0');
    }
    /* One white space ends the last of them: it is read, and whatever follows it is a pixel. */
    return digits > 0 && isspace(c) ? number : -1;
}

static int read_pixels(FILE* file, const char* name, int width, int height, picture* to) {
    const size_t size = (size_t)width * (size_t)height;
    to->width = width;
    to->height = height;
    to->pixels = malloc(size);
    if (to->pixels == NULL) {
        return refuse(name, "too little memory");
    }
    if (fread(to->pixels, 1, size, file) != size) {
        free(to->pixels);
        to->pixels = NULL;
        return refuse(name, "the picture is cut short");
    }
    return 0;
}

/* What comes after "P5". */
static int read_pgm(FILE* file, const char* name, picture* to) {
    const int width = header_number(file);
    const int height = header_number(file);
    const int white = header_number(file);
    size_t i;
    if (width < 1 || height < 1 || white < 1) {
        return refuse(name, "the header of the PGM picture is damaged");
    }
    if (width > MOST_SIDE || height > MOST_SIDE) {
        return refuse(name, "the picture is larger than 8192 pixels");
    }
    if (white > 255) {
        return refuse(name, "a PGM picture of 16 bits; reduce it to 8 bits");
    }
    if (read_pixels(file, name, width, height, to) != 0) {
        return -1;
    }
    for (i = 0; white < 255 && i < (size_t)width * (size_t)height; ++i) {
        const int level = to->pixels[i] < white ? to->pixels[i] : white;
        to->pixels[i] = (uint8_t)((level * 255 + white / 2) / white);
    }
    return 0;
}

#ifdef PICTURE_PNG
static int read_png(FILE* file, const char* name, picture* to) {
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_stdio(&image, file)) {
        return refuse(name, image.message);
    }
    image.format = PNG_FORMAT_GRAY;
    to->width = (int)image.width;
    to->height = (int)image.height;
    to->pixels =
        image.width > MOST_SIDE || image.height > MOST_SIDE ? NULL : malloc(PNG_IMAGE_SIZE(image));
    if (to->pixels == NULL || !png_image_finish_read(&image, NULL, to->pixels, 0, NULL)) {
        refuse(name, to->pixels == NULL ? "the picture is too large" : image.message);
        png_image_free(&image);
        free(to->pixels);
        to->pixels = NULL;
        return -1;
    }
    return 0;
}
#else
static int read_png(FILE* file, const char* name, picture* to) {
    (void)file;
    (void)to;
    return refuse(name, "built without libpng; convert the picture to PGM");
}
#endif

int picture_next(FILE* file, const char* name, picture* to) {
    const int first = fgetc(file);
    if (first == EOF) {
        return 1;
    }
    if (first != 'P' || fgetc(file) != '5') {
        return refuse(name, "not a binary PGM picture (P5)");
    }
    return read_pgm(file, name, to);
}

static int read_any(FILE* file, const char* name, picture* to) {
    const int first = fgetc(file);
    const int second = fgetc(file);
    if (first == 'P' && second == '5') {
        return read_pgm(file, name, to);
    }
    if (fseek(file, 0, SEEK_SET) != 0) {
        return refuse(name, "not a binary PGM picture (P5)");
    }
    if (first == 0x89 && second == 'P') {
        return read_png(file, name, to);
    }
    return read_pixels(file, name, BARE_SIDE, BARE_SIDE, to);
}

int picture_load(const char* path, picture* to) {
    int status;
    FILE* file = strcmp(path, "-") == 0 ? stdin : fopen(path, "rb");
    to->pixels = NULL;
    if (file == NULL) {
        return refuse(path, "cannot be opened");
    }
    status = read_any(file, path, to);
    if (file != stdin) {
        fclose(file);
    }
    return status;
}
