/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Control and inspection of libkova_mpi_host, the stand-in for the camera platform on a PC. It
 * defines every function of kova_mpi.h; what follows exists on the PC only.
 *
 * Media memory. One sparse pool serves all blocks. Blocks start at a page and are zero when handed
 * out. A physical address is never a usable pointer: its bit 48 is set, which no process address
 * has, and the addresses that its low 32 bits alone denote are reserved without access. So a
 * physical address, whole or cut to 32 bits, faults when it is used as a pointer, and no block or
 * mapping ever lies there. Each block and each mapping stands between two pages without access.
 *
 * Mappings. KOVA_MPI_SYS_Mmap() maps any range inside one live block, at an address other than the
 * block's own, with the same bytes. A range that is mapped already, start and size alike, is not
 * mapped a second time: the caller gets the same address and the mapping counts one user more; it
 * goes with its last user's KOVA_MPI_SYS_Munmap(). Freeing a block removes the mappings that are
 * left of it, whoever made them.
 *
 * Scaler. A job runs in KOVA_MPI_VGS_EndJob(): each task is scaled bilinearly, centre-aligned,
 * reading and writing by physical address only. Tasks are checked when they are added and again
 * when the job runs. A job whose end fails stays open until it is cancelled.
 *
 * Any address, range or handle that was not handed out is refused with a code below, and nothing
 * is unmapped or freed.
 *
 * Threads: any thread may call any function at any time.
 */
#ifndef ORVO_KOVA_MPI_HOST_H
#define ORVO_KOVA_MPI_HOST_H

#include <stdint.h>

#include "orvo/export.h"
#include "orvo/kova_mpi.h"

ORVO_C_BEGIN

/* What the KOVA_MPI_SYS_ functions return. */
#define KOVA_SYS_ERR_ILLEGAL_PARAM ((int32_t)0xA0028003) /**< a size is 0 or not the mapping's */
#define KOVA_SYS_ERR_UNEXIST ((int32_t)0xA0028005)       /**< an address was not handed out */
#define KOVA_SYS_ERR_NULL_PTR ((int32_t)0xA0028006)      /**< a required address is null */
#define KOVA_SYS_ERR_NOT_READY ((int32_t)0xA0028008)     /**< the pool could not be set up */
#define KOVA_SYS_ERR_NOMEM ((int32_t)0xA002800C)         /**< no room for the block or mapping */

/* What the KOVA_MPI_VGS_ functions return. */
#define KOVA_VGS_ERR_ILLEGAL_PARAM ((int32_t)0xA0038003) /**< a frame or the mode is not valid */
#define KOVA_VGS_ERR_UNEXIST ((int32_t)0xA0038005)       /**< no such job is open */
#define KOVA_VGS_ERR_NULL_PTR ((int32_t)0xA0038006)      /**< a required address is null */
#define KOVA_VGS_ERR_NOMEM ((int32_t)0xA003800C) /**< a frame could not be reached, or no memory */

/** What is in use at one moment: all zero when nothing is leaked. */
typedef struct kova_mpi_host_usage {
    uint32_t blocks;   /**< live blocks */
    uint32_t mappings; /**< live mappings; a mapping with several users counts once */
    uint32_t jobs;     /**< open scaler jobs */
    uint64_t block_bytes;
    uint64_t mapping_bytes;
} kova_mpi_host_usage;

/** Longest part of a block name that the records below keep, with its end. */
#define KOVA_MPI_HOST_NAME_SIZE 32

/** One live block. */
typedef struct kova_mpi_host_block {
    char name[KOVA_MPI_HOST_NAME_SIZE];
    uint64_t phy; /**< as handed out */
    void* vir;    /**< as handed out */
    uint32_t size;
    uint32_t cached; /**< 1 if it came from KOVA_MPI_SYS_MmzAlloc_Cached() */
} kova_mpi_host_block;

/** One live mapping. */
typedef struct kova_mpi_host_mapping {
    uint64_t phy;
    void* vir;
    uint32_t size;
    uint32_t users; /**< KOVA_MPI_SYS_Mmap() calls without their KOVA_MPI_SYS_Munmap() */
} kova_mpi_host_mapping;

/** One call of a function of kova_mpi.h, as it was made and answered. */
typedef struct kova_mpi_host_call {
    const char* function; /**< such as "KOVA_MPI_SYS_Mmap" */
    int32_t result;       /**< what it returned; for KOVA_MPI_SYS_Mmap() 0 or why it refused */
    int32_t handle; /**< scaler: the job; for KOVA_MPI_VGS_BeginJob() the one handed out; else -1 */
    uint64_t phy;   /**< given, or for an allocation handed out */
    uint64_t vir;   /**< given, or for an allocation or KOVA_MPI_SYS_Mmap() handed out */
    uint32_t size;
    uint32_t mode;                      /**< KOVA_MPI_VGS_AddScaleTask() */
    uint32_t has_zone;                  /**< allocations: 1 if a zone name was given */
    char name[KOVA_MPI_HOST_NAME_SIZE]; /**< allocations: the block name */
    kova_vgs_task task;                 /**< KOVA_MPI_VGS_AddScaleTask() */
} kova_mpi_host_call;

/** Which address an allocation that succeeds leaves out. */
typedef enum kova_mpi_host_blank {
    KOVA_MPI_HOST_BLANK_PHY, /**< physical address 0 */
    KOVA_MPI_HOST_BLANK_VIR  /**< virtual address null */
} kova_mpi_host_blank;

/** Where the pool lies: every physical address is in [*base, *base + *size). */
ORVO_API void kova_mpi_host_get_pool(uint64_t* base, uint64_t* size) ORVO_NONNULL;

/** What is in use now. */
ORVO_API void kova_mpi_host_get_usage(kova_mpi_host_usage* usage) ORVO_NONNULL;
/** How many live blocks have this name. @p bytes: their sizes' sum; may be null */
ORVO_API uint32_t kova_mpi_host_blocks_named(const char* name, uint64_t* bytes);
/** The live block of that rank in order of allocation. @return 0, or -1 if there are not so many */
ORVO_API int32_t kova_mpi_host_get_block(uint32_t index, kova_mpi_host_block* block) ORVO_NONNULL;
/** The live mapping of that rank in order of making. @return 0, or -1 if there are not so many */
ORVO_API int32_t kova_mpi_host_get_mapping(uint32_t index,
                                           kova_mpi_host_mapping* mapping) ORVO_NONNULL;

/** Starts recording calls, with an empty record. Nothing is recorded before the first start. */
ORVO_API void kova_mpi_host_start_recording(void);
/** Stops recording; the record stays. */
ORVO_API void kova_mpi_host_stop_recording(void);
/** Calls recorded since the start. The first 4096 can be looked at, later ones are only counted. */
ORVO_API uint32_t kova_mpi_host_call_count(void);
/** A recorded call, counted from 0. @return 0, or -1 if it is not in the record */
ORVO_API int32_t kova_mpi_host_get_call(uint32_t index, kova_mpi_host_call* call) ORVO_NONNULL;

/**
 * Makes a function of kova_mpi.h fail: the @p n th call from now, counted from 1, does nothing but
 * return @p code (KOVA_MPI_SYS_Mmap(): null). A function has one fault at a time, the latest.
 *
 * @param function  its name, such as "KOVA_MPI_VGS_EndJob"
 * @param code      what it returns; not 0
 * @param for_good  not 0: every later call fails as well
 * @return 0, or -1 if there is no such function, @p n is 0 or @p code is 0
 */
ORVO_API int32_t kova_mpi_host_fail_call(const char* function, uint32_t n, int32_t code,
                                         int32_t for_good);

/**
 * Makes an allocation succeed with an address missing, counted as above. The block exists all the
 * same and shows in the usage; KOVA_MPI_SYS_MmzFree() takes the two addresses as handed out.
 *
 * @param function  "KOVA_MPI_SYS_MmzAlloc" or "KOVA_MPI_SYS_MmzAlloc_Cached"
 * @return 0, or -1 if it is neither of them or @p n is 0
 */
ORVO_API int32_t kova_mpi_host_blank_address(const char* function, uint32_t n,
                                             kova_mpi_host_blank blank, int32_t for_good);

/** No faults from now on. */
ORVO_API void kova_mpi_host_clear_faults(void);

/**
 * Back to the state at load: every block, mapping and job goes, whoever holds it, with all faults
 * and the record. For use between tests, when nothing points into media memory any more.
 */
ORVO_API void kova_mpi_host_reset(void);

ORVO_C_END

#endif
