/* SPDX-License-Identifier: MIT
 *
 * Loads the library that it is given, every import resolved at once, in a process that has no
 * platform, and opens and closes the device API. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>

typedef uint32_t (*call)(void);

int main(int argc, char** argv) {
    void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (library == NULL) {
        fprintf(stderr, "%s\n", argc == 2 ? dlerror() : "usage: load_alone LIBRARY");
        return 1;
    }
    call init = (call)(uintptr_t)dlsym(library, "kova_fr_init");
    call deinit = (call)(uintptr_t)dlsym(library, "kova_fr_deinit");
    uint32_t status = init();
    if (status == 0) {
        status = deinit();
    }
    printf("kova_fr_init() and kova_fr_deinit(): %#x\n", (unsigned)status);
    return status != 0;
}
