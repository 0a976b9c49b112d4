/* SPDX-License-Identifier: MIT */
/*
 * Preloaded into a program, makes an allocation of its fail: the one of the number that
 * KOVA_FAIL_ALLOCATION gives, counted from 1 while main() runs, and with a + behind the number every later one
 * as well. The file that KOVA_COUNT_ALLOCATIONS names is given how many there were.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* The C library's own, under names that nobody replaces. */
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

static atomic_bool isInMain;
static atomic_ulong allocations;
static unsigned long failing;
static int failsForGood;

static int fails_now(void) {
    unsigned long number;
    if (!atomic_load(&isInMain)) {
        return 0;
    }
    number = atomic_fetch_add(&allocations, 1) + 1;
    if (failing != 0 && (number == failing || (failsForGood && number > failing))) {
        errno = ENOMEM;
        return 1;
    }
    return 0;
}

void* malloc(size_t size) { return fails_now() ? NULL : __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return fails_now() ? NULL : __libc_calloc(count, size); }
void* realloc(void* block, size_t size) { return fails_now() ? NULL : __libc_realloc(block, size); }
void* memalign(size_t alignment, size_t size) {
    return fails_now() ? NULL : __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, size_t alignment, size_t size) {
    void* allocated = memalign(alignment, size);
    if (allocated == NULL) {
        return ENOMEM;
    }
    *block = allocated;
    return 0;
}

static void write_count(void) {
    const char* path = getenv("KOVA_COUNT_ALLOCATIONS");
    char text[32];
    int file;
    if (path == NULL) {
        return;
    }
    file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    snprintf(text, sizeof text, "%lu\n", atomic_load(&allocations));
    if (file < 0 || write(file, text, strlen(text)) < 0 || close(file) != 0) {
        abort();
    }
}

static int (*programsMain)(int, char**, char**);

static int main_with_faults(int count, char** arguments, char** environment) {
    const char* at = getenv("KOVA_FAIL_ALLOCATION");
    int status;
    if (at != NULL) {
        char* end;
        failing = strtoul(at, &end, 10);
        failsForGood = *end == '+';
    }
    atomic_store(&isInMain, 1);
    status = programsMain(count, arguments, environment);
    atomic_store(&isInMain, 0);
    write_count();
    return status;
}

typedef int StartMain(int (*)(int, char**, char**), int, char**, void (*)(void), void (*)(void),
                      void (*)(void), void*);

int __libc_start_main(int (*main)(int, char**, char**), int count, char** arguments,
                      void (*init)(void), void (*fini)(void), void (*end)(void), void* stack) {
    StartMain* next = NULL;
    *(void**)&next = dlsym(RTLD_NEXT, "__libc_start_main");
    programsMain = main;
    return next(main_with_faults, count, arguments, init, fini, end, stack);
}
