/* SPDX-License-Identifier: MIT */
/* Loads the package's libraries as ctypes does and writes a feature, for machines and C libraries that this one has
 * no Python of. wheel_program FOLDER */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static void* Load(const char* folder, const char* name) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", folder, name);
    void* library = dlopen(path, RTLD_LAZY | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    return library;
}

int main(int argc, char** argv) {
    enum { kMemory = 1410052, kPixels = 65536 };
    static uint8_t memory[kMemory];
    static uint8_t picture[kPixels];
    float feature[128];
    int64_t done = 0;
    if (argc != 2) {
        return 2;
    }
    void* fr = Load(argv[1], "libkova_fr.so.1");
    void* many = Load(argv[1], "libkova_python.so");
    void* find = Load(argv[1], "libkova_find.so.1");
    int32_t (*init)(void) = (int32_t(*)(void))dlsym(fr, "OrvoFrInit");
    int32_t (*initFind)(void) = (int32_t(*)(void))dlsym(find, "OrvoFindInit");
    int32_t (*setMemory)(void*, uint32_t) =
        (int32_t(*)(void*, uint32_t))dlsym(fr, "OrvoFrSetMemory");
    int32_t (*features)(const uint8_t*, int64_t, float*, int64_t*) =
        (int32_t(*)(const uint8_t*, int64_t, float*, int64_t*))dlsym(many, "KovaPythonFeatures");
    for (uint32_t i = 0; i < kPixels; ++i) {
        picture[i] = (uint8_t)(i * 7919u % 251u);
    }
    if (init() != 0 || initFind() != 0 || setMemory(memory, sizeof memory) != 0 ||
        features(picture, 1, feature, &done) != 0 || done != 1) {
        return 1;
    }
    return fwrite(feature, sizeof feature, 1, stdout) == 1 ? 0 : 1;
}
