/* SPDX-License-Identifier: MIT
 *
 * A program that implements some of the platform itself: its functions come before those of the
 * stand-in, which the library brings along. */
#include <stdio.h>

#include "orvo/cipher.h"
#include "orvo/kova_fr.h"
#include "orvo/kova_mpi.h"

static int allocations;
static int encryptions;

int32_t KOVA_MPI_SYS_MmzAlloc_Cached(uint64_t* phy, void** vir, const char* name, const char* zone,
                                     uint32_t size) {
    (void)phy, (void)vir, (void)name, (void)zone, (void)size;
    ++allocations;
    return -1;
}

int32_t wb_aes_encrypt(const uint8_t in[16], uint8_t out[16]) {
    (void)in, (void)out;
    ++encryptions;
    return -1;
}

int main(void) {
    const uint8_t iv[12] = {0};
    uint8_t block[16] = {0};
    uint8_t tag[16];
    const uint32_t status = kova_fr_init();
    (void)wb_aes_encrypt_gcm(iv, sizeof iv, block, sizeof block, block, NULL, 0, tag, sizeof tag);
    printf("kova_fr_init(): %#x after %d allocations here, %d blocks enciphered here\n",
           (unsigned)status, allocations, encryptions);
    return status != KOVA_FR_ERR_NOMEM || allocations != 1 || encryptions == 0;
}
