/* SPDX-License-Identifier: MIT */
/*
 * Prints what must be the same bytes on every machine, a line each:
 *
 *     digests FILL PICTURE...
 *
 * the opened models, the outputs of the ciphers and of the image tools, and for each picture (binary PGM)
 * every step of the networks, with the feature or the faces at their end. A picture of 256 x 256 is a face, in
 * any other faces are looked for. The first line names the instruction set, which is what may differ. The
 * working memory is full of the byte FILL at first, and of nothing known if that is "none": what was in it must not
 * matter.
 *
 * In C, and with nothing but the C library, so that it can be built wherever the library can. The linker leads
 * the networks' kernel calls through here (--wrap).
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orvo/cipher.h"
#include "orvo/image_tools.h"
#include "orvo/model_store.h"
#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"
#include "orvo/q7_kernels.h"

#ifdef __has_feature
#if __has_feature(memory_sanitizer)
#include <sanitizer/msan_interface.h>
#define CHECK_KNOWN(data, size) __msan_check_mem_is_initialized(data, size)
#endif
#endif
#ifndef CHECK_KNOWN
#define CHECK_KNOWN(data, size) ((void)0)
#endif

#define MOST_FACES 4

/* ---- Digests: FNV-1a, 64 bits */

#define START UINT64_C(0xCBF29CE484222325)

static uint64_t Continue(uint64_t hash, uint8_t byte) {
    return (hash ^ byte) * UINT64_C(0x100000001B3);
}

static uint64_t OfBytes(const void* data, size_t size) {
    const uint8_t* bytes = (const uint8_t*)data;
    uint64_t hash = START;
    size_t i;
    CHECK_KNOWN(data, size);
    for (i = 0; i < size; ++i) {
        hash = Continue(hash, bytes[i]);
    }
    return hash;
}

/* By value, since machines keep the bytes of a number in different orders. */
static uint64_t OfWords(const void* data, size_t count) {
    uint64_t hash = START;
    size_t i;
    CHECK_KNOWN(data, 4 * count);
    for (i = 0; i < count; ++i) {
        uint32_t word;
        memcpy(&word, (const uint8_t*)data + 4 * i, 4);
        hash = Continue(hash, (uint8_t)word);
        hash = Continue(hash, (uint8_t)(word >> 8));
        hash = Continue(hash, (uint8_t)(word >> 16));
        hash = Continue(hash, (uint8_t)(word >> 24));
    }
    return hash;
}

static void Say(const char* what, uint64_t digest) { printf("%s %016" PRIx64 "\n", what, digest); }

static void Fail(const char* what) {
    fprintf(stderr, "digests: %s\n", what);
    exit(1);
}

/* ---- The networks' steps */

static unsigned g_step;

static void SayStep(const char* kernel, const void* output, size_t size) {
    printf("step %u %s %016" PRIx64 "\n", g_step++, kernel, OfBytes(output, size));
}

#define CONVOLUTION(name)                                                                         \
    void __real_##name(const int8_t*, uint16_t, uint16_t, uint16_t, const int8_t*, uint16_t,      \
                       uint16_t, uint16_t, uint16_t, const int32_t*, uint16_t, int8_t*, uint16_t, \
                       uint16_t, int8_t*);                                                        \
    void __wrap_##name(const int8_t*, uint16_t, uint16_t, uint16_t, const int8_t*, uint16_t,      \
                       uint16_t, uint16_t, uint16_t, const int32_t*, uint16_t, int8_t*, uint16_t, \
                       uint16_t, int8_t*);                                                        \
    void __wrap_##name(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,                  \
                       uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,         \
                       uint16_t kernelSize, uint16_t pad, uint16_t stride, const int32_t* bias,   \
                       uint16_t outShift, int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,     \
                       int8_t* scratch) {                                                         \
        __real_##name(src, srcWidth, srcHeight, srcChannels, weights, dstChannels, kernelSize,    \
                      pad, stride, bias, outShift, dst, dstWidth, dstHeight, scratch);            \
        SayStep(#name, dst, (size_t)dstChannels* dstWidth* dstHeight);                            \
    }

CONVOLUTION(arma_convolve_chw_q7)
CONVOLUTION(ArmAConvolve1x1s1p0ChwQ7)
CONVOLUTION(arma_convolvedw_3x3_s1_chw_q7)
CONVOLUTION(ArmAConvolvedwRelu3x3s1ChwQ7)

#define KERNEL(name, parameters, arguments, output, size) \
    void __real_##name parameters;                        \
    void __wrap_##name parameters;                        \
    void __wrap_##name parameters {                       \
        __real_##name arguments;                          \
        SayStep(#name, output, size);                     \
    }

KERNEL(ArmAConvolveGlobalChwQ7,
       (const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
        const int8_t* weights, const int32_t* bias, uint16_t outShift, int8_t* dst, void* scratch),
       (src, width, height, channels, weights, bias, outShift, dst, scratch), dst, channels)
KERNEL(ArmAFcQ7,
       (const int8_t* src, const int8_t* weights, uint32_t inCount, uint32_t outCount,
        uint16_t outShift, const int32_t* bias, int8_t* dst, void* scratch),
       (src, weights, inCount, outCount, outShift, bias, dst, scratch), dst, outCount)
KERNEL(ArmAMaxPool2x2S2ChwQ7,
       (const int8_t* src, int8_t* dst, uint32_t width, uint32_t height, uint16_t channels,
        int32_t pad, int8_t* scratch),
       (src, dst, width, height, channels, pad, scratch), dst,
       (size_t)channels*(width / 2) * (height / 2))
KERNEL(ArmAMaxpoolK2x2S1x1ChwQ7,
       (int8_t * src, uint32_t width, uint32_t height, uint32_t channels, int8_t* dst,
        void* scratch),
       (src, width, height, channels, dst, scratch), dst,
       (size_t)channels*(width - 1) * (height - 1))
KERNEL(ArmADownsample,
       (const int8_t* src, uint32_t width, int32_t height, uint32_t channels, int8_t* dst,
        void* scratch),
       (src, width, height, channels, dst, scratch), dst,
       (size_t)channels*((width + 1) / 2) * (((uint32_t)height + 1) / 2))
KERNEL(ArmAGapQ7Chw,
       (const int8_t* src, uint32_t width, uint32_t height, uint32_t channels, uint16_t shift,
        void* scratch, int8_t* dst),
       (src, width, height, channels, shift, scratch, dst), dst, channels)
KERNEL(ArmAXorQ7, (uint8_t * data, int32_t count), (data, count), data, (size_t)count)
KERNEL(ArmAReluChwQ7, (const int8_t* src, int8_t* dst, uint32_t count), (src, dst, count), dst,
       count)
KERNEL(ArmAZpadPlusChwQ7,
       (const int8_t* in1, const int8_t* in2, int8_t* dst, uint16_t in1Shift, uint16_t in2Shift,
        uint16_t outShift, uint16_t height, uint16_t width, uint16_t outChannels,
        uint16_t in2Channels, void* scratch),
       (in1, in2, dst, in1Shift, in2Shift, outShift, height, width, outChannels, in2Channels,
        scratch),
       dst, (size_t)outChannels* width* height)

/* ---- Pictures */

typedef struct Picture {
    uint8_t* pixels;
    int32_t width;
    int32_t height;
} Picture;

static Picture ReadPicture(const char* name) {
    Picture picture = {NULL, 0, 0};
    int most = 0;
    size_t size;
    FILE* const file = fopen(name, "rb");
    if (file == NULL ||
        fscanf(file, "P5 %" SCNd32 " %" SCNd32 " %d", &picture.width, &picture.height, &most) !=
            3 ||
        fgetc(file) == EOF || most != 255 || picture.width < 1 || picture.height < 1) {
        Fail("a picture cannot be read, or is no PGM");
    }
    size = (size_t)picture.width * (size_t)picture.height;
    picture.pixels = malloc(size);
    if (picture.pixels == NULL || fread(picture.pixels, 1, size, file) != size) {
        Fail("a picture is cut off");
    }
    fclose(file);
    return picture;
}

static int g_fill = -1;

static void* Memory(size_t size) {
    void* const memory = malloc(size);
    if (memory == NULL) {
        Fail("there is no memory");
    }
    if (g_fill >= 0) {
        memset(memory, g_fill, size);
    }
    return memory;
}

static void RecogniseFace(const Picture* picture) {
    float feature[ORVO_FR_FEATURE_LENGTH];
    float distance;
    const FrImage image = {picture->pixels, picture->height, picture->width, picture->width};
    if (OrvoFrRun(&image, feature, sizeof feature) != ORVO_FR_OK) {
        Fail("a face is refused");
    }
    Say("feature", OfWords(feature, ORVO_FR_FEATURE_LENGTH));
    distance = OrvoFrGetDistance(feature, sizeof feature, feature, sizeof feature);
    Say("distance", OfWords(&distance, 1));
}

static void FindFaces(const Picture* picture) {
    OrvoFindFace faces[MOST_FACES];
    float features[MOST_FACES * ORVO_FIND_FEATURE_LENGTH];
    float mirrored[MOST_FACES * ORVO_FIND_FEATURE_LENGTH];
    uint8_t crop[ORVO_FIND_CROP_SIZE * ORVO_FIND_CROP_SIZE];
    int32_t count = 0;
    int32_t i;
    const OrvoFindPicture view = {picture->pixels, picture->width, picture->height, picture->width};
    const uint32_t size =
        OrvoFindGetMemorySize(picture->width, picture->height, ORVO_FIND_SMALLEST);
    void* const memory = Memory(size);
    if (OrvoFindSetMemory(memory, size) != ORVO_FIND_OK ||
        OrvoFindFeatures(&view, ORVO_FIND_SMALLEST, faces, features, MOST_FACES, &count) !=
            ORVO_FIND_OK ||
        OrvoFindMirroredFeatures(&view, ORVO_FIND_SMALLEST, faces, mirrored, MOST_FACES, &count) !=
            ORVO_FIND_OK) {
        Fail("a picture is refused");
    }
    printf("faces %d\n", (int)count);
    for (i = 0; i < count; ++i) {
        Say("face", OfWords(&faces[i], sizeof faces[i] / 4));
        Say("feature", OfWords(features + i * ORVO_FIND_FEATURE_LENGTH, ORVO_FIND_FEATURE_LENGTH));
        Say("mirrored", OfWords(mirrored + i * ORVO_FIND_FEATURE_LENGTH, ORVO_FIND_FEATURE_LENGTH));
        if (OrvoFindUpright(&view, &faces[i], crop) != ORVO_FIND_OK) {
            Fail("a face cannot be turned upright");
        }
        Say("upright", OfBytes(crop, sizeof crop));
    }
    free(memory);
}

/* ---- What else computes */

static void Fill(uint8_t* bytes, size_t count, uint32_t seed) {
    size_t i;
    for (i = 0; i < count; ++i) {
        seed = seed * 1664525u + 1013904223u;
        bytes[i] = (uint8_t)(seed >> 24);
    }
}

static uint64_t OfArray(const ModelArray* array) {
    return array->elementSize == 4 ? OfWords(array->data, array->size / 4)
                                   : OfBytes(array->data, array->size);
}

static void SayModels(void) {
    uint64_t digest = START;
    size_t i;
    size_t k;
    for (i = 0; i < sizeof g_alignArray / sizeof g_alignArray[0]; ++i) {
        const uint64_t array = OfArray(&g_alignArray[i]);
        for (k = 0; k < 8; ++k) {
            digest = Continue(digest, (uint8_t)(array >> 8 * k));
        }
    }
    for (i = 0; i < sizeof g_frArray / sizeof g_frArray[0]; ++i) {
        const uint64_t array = OfArray(&g_frArray[i]);
        for (k = 0; k < 8; ++k) {
            digest = Continue(digest, (uint8_t)(array >> 8 * k));
        }
    }
    Say("models", digest);
}

static void SayCiphers(void) {
    enum { kSize = 960 };
    uint8_t text[kSize];
    uint8_t out[kSize];
    uint8_t key[16];
    uint8_t custom[256];
    uint32_t length = 0;
    AES_ctx context;
    Fill(text, sizeof text, 1);
    Fill(key, sizeof key, 2);
    AES_init_ctx_iv(&context, key, key);
    AES_ECB_encrypt(&context, text);
    AES_ECB_decrypt(&context, text + 16);
    AES_CBC_encrypt_buffer(&context, text, kSize);
    Say("cbc-encrypt", OfBytes(text, kSize));
    AES_CBC_decrypt_buffer(&context, text, kSize);
    Say("cbc-decrypt", OfBytes(text, kSize));
    AES_CTR_xcrypt_buffer(&context, text, kSize - 5);
    Say("ctr", OfBytes(text, kSize));
    if (wb_aes_decrypt_cbc_no_pad(key, text, kSize, out) != 0) {
        Fail("the white box refuses");
    }
    Say("white-box", OfBytes(out, kSize));
    (void)wb_aes_get_custom_data_d(custom, &length);
    Say("custom-data", OfBytes(custom, length));
}

static void SayImageTools(void) {
    enum { kWide = 61, kHigh = 47, kOut = 53 };
    static uint8_t in[kWide * kHigh * 4];
    static uint8_t out[kOut * kOut * 4];
    static float floats[kWide * kHigh];
    static float warped[kWide * kHigh];
    static float turned[kOut * kOut];
    const float matrix[6] = {0.83f, -0.21f, 3.7f, 0.19f, 0.91f, -2.3f};
    size_t i;
    Fill(in, sizeof in, 3);
    for (i = 0; i < kWide * kHigh; ++i) {
        floats[i] = (float)in[i] / 3.0f;
    }
    ImageResizeBilin(in, out, kHigh, kWide, kWide, kOut, kOut);
    Say("bilinear", OfBytes(out, kOut * kOut));
    ResizeNearQ7(in, out, kHigh, kWide, 3, kOut, kOut);
    Say("nearest", OfBytes(out, kOut * kOut * 3));
    ResizeNearQ4(in, out, kHigh, kWide, 4, kOut, kOut);
    Say("nearest-4", OfBytes(out, kOut * kOut * 2));
    ImageWarpAffine(floats, warped, matrix, kWide, kHigh, kWide, 0);
    Say("warp", OfWords(warped, kWide * kHigh));
    ImageWarpAffine(floats, warped, matrix, kWide, kHigh, kWide, 1);
    Say("warp-inverse", OfWords(warped, kWide * kHigh));
    (void)AffineWarpFloat(floats, kWide, kHigh, turned, kOut, kOut, 1, matrix, 0.5f);
    Say("warp-to-size", OfWords(turned, kOut * kOut));
}

int main(int argc, char** argv) {
    void* memory;
    int i;
    if (argc < 3) {
        Fail("usage: digests FILL PICTURE...");
    }
    if (strcmp(argv[1], "none") != 0) {
        g_fill = atoi(argv[1]) & 0xFF;
    }
    memory = Memory(ORVO_FR_MEMORY_SIZE);
    printf("path %s\n", OrvoFrGetInstructionSet());
    if (OrvoFrInit() != ORVO_FR_OK || OrvoFindInit() != ORVO_FIND_OK ||
        OrvoFrSetMemory(memory, ORVO_FR_MEMORY_SIZE) != ORVO_FR_OK) {
        Fail("the library cannot be initialised");
    }
    SayModels();
    SayCiphers();
    SayImageTools();
    for (i = 2; i < argc; ++i) {
        const Picture picture = ReadPicture(argv[i]);
        printf("picture %d\n", i - 1);
        g_step = 0;
        if (picture.width == ORVO_FR_IMAGE_SIZE && picture.height == ORVO_FR_IMAGE_SIZE) {
            RecogniseFace(&picture);
        } else {
            FindFaces(&picture);
        }
        free(picture.pixels);
    }
    free(memory);
    return 0;
}
