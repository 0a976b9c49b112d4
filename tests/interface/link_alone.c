/* SPDX-License-Identifier: MIT
 *
 * A program that links the library and nothing that implements the platform. */
#include <stdio.h>

#include "orvo/kova_fr.h"

int main(void) {
    const uint32_t status = kova_fr_init();
    printf("kova_fr_init(): %#x\n", (unsigned)status);
    return status != KOVA_FR_OK || kova_fr_deinit() != KOVA_FR_OK;
}
