/* SPDX-License-Identifier: MIT */
/*
 * The functions of kova_mpi.h for a machine without media memory and without a scaler: what a port
 * to another platform starts from. A block is malloc()ed, and its physical address is its address.
 *
 * Without a scaler only frames of 256 x 256 are recognised. Others fail with NO_SCALER, which
 * kova_fr_extract_obj_feature() hands through.
 */
#include <orvo/kova_mpi.h>
#include <stdlib.h>

#define OUT_OF_MEMORY ((int32_t)0xA002800C)
#define NO_SCALER ((int32_t)0xA0038008)

int32_t KOVA_MPI_SYS_MmzAlloc(uint64_t* phy, void** vir, const char* name, const char* zone,
                              uint32_t size) {
    (void)name;
    (void)zone;
    *vir = malloc(size);
    *phy = (uintptr_t)*vir;
    return *vir != NULL ? 0 : OUT_OF_MEMORY;
}

int32_t KOVA_MPI_SYS_MmzAlloc_Cached(uint64_t* phy, void** vir, const char* name, const char* zone,
                                     uint32_t size) {
    return KOVA_MPI_SYS_MmzAlloc(phy, vir, name, zone, size);
}

int32_t KOVA_MPI_SYS_MmzFree(uint64_t phy, void* vir) {
    (void)phy;
    free(vir);
    return 0;
}

void* KOVA_MPI_SYS_Mmap(uint64_t phy, uint32_t size) {
    (void)size;
    return (void*)(uintptr_t)phy;
}

int32_t KOVA_MPI_SYS_Munmap(void* vir, uint32_t size) {
    (void)vir;
    (void)size;
    return 0;
}

int32_t KOVA_MPI_VGS_BeginJob(int32_t* handle) {
    (void)handle;
    return NO_SCALER;
}

int32_t KOVA_MPI_VGS_AddScaleTask(int32_t handle, const kova_vgs_task* task, uint32_t mode) {
    (void)handle;
    (void)task;
    (void)mode;
    return NO_SCALER;
}

int32_t KOVA_MPI_VGS_EndJob(int32_t handle) {
    (void)handle;
    return NO_SCALER;
}

int32_t KOVA_MPI_VGS_CancelJob(int32_t handle) {
    (void)handle;
    return NO_SCALER;
}

/* Only wb_aes_encrypt_gcm() and its sibling call it. Nothing must look enciphered that is not. */
int32_t wb_aes_encrypt(const uint8_t in[16], uint8_t out[16]) {
    (void)in;
    (void)out;
    abort();
}
