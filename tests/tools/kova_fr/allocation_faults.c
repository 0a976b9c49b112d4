/* SPDX-License-Identifier: MIT */
/*
 * Preloaded into a program, makes an allocation of its fail: the one of the number that
 * KOVA_FAIL_ALLOCATION gives, counted from 1 while main() runs, and with a + behind the number every later one
 * as well. The file that KOVA_COUNT_ALLOCATIONS names is given how many there were, and in lines of their own the
 * numbers of those that were the first to be asked for by their chain of callers.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

/* The C library's own, under names that nobody replaces. */
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

static atomic_bool isInMain;
static atomic_ulong allocations;
static unsigned long failing;
static int failsForGood;

/* Chains of the nearest callers, by a number that stands for each, and the allocation that had it first. */
enum { kChains = 1 << 15, kMostCallers = 8 };
static struct { unsigned long chain, first; } chains[kChains];
static const char* countFile;
static atomic_flag chainsAreInUse = ATOMIC_FLAG_INIT;

static void note_callers(unsigned long number) {
    void* callers[kMostCallers];
    const int count = backtrace(callers, kMostCallers);
    unsigned long chain = 14695981039346656037u;
    size_t place;
    int i;
    for (i = 0; i < count; ++i) {
        chain = (chain ^ (unsigned long)callers[i]) * 1099511628211u;
    }
    chain |= 1;
    while (atomic_flag_test_and_set(&chainsAreInUse)) {
    }
    place = (chain >> 8) % kChains;
    while (chains[place].chain != 0 && chains[place].chain != chain) {
        place = (place + 1) % kChains;
    }
    if (chains[place].chain == 0) {
        chains[place].chain = chain;
        chains[place].first = number;
    }
    atomic_flag_clear(&chainsAreInUse);
}

static int fails_now(void) {
    static _Thread_local int isNoting;
    unsigned long number;
    if (!atomic_load(&isInMain) || isNoting) {
        return 0;
    }
    number = atomic_fetch_add(&allocations, 1) + 1;
    if (countFile != NULL) {
        isNoting = 1; /* what that allocates does not count */
        note_callers(number);
        isNoting = 0;
    }
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
    FILE* file;
    size_t i;
    if (countFile == NULL) {
        return;
    }
    file = fopen(countFile, "w");
    if (file == NULL) {
        abort();
    }
    fprintf(file, "%lu\n", atomic_load(&allocations));
    for (i = 0; i < kChains; ++i) {
        if (chains[i].chain != 0) {
            fprintf(file, "%lu\n", chains[i].first);
        }
    }
    if (fclose(file) != 0) {
        abort();
    }
}

static int (*programsMain)(int, char**, char**);

static int main_with_faults(int count, char** arguments, char** environment) {
    const char* at = getenv("KOVA_FAIL_ALLOCATION");
    int status;
    countFile = getenv("KOVA_COUNT_ALLOCATIONS");
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
