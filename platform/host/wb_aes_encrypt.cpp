// SPDX-License-Identifier: MIT
// The stand-in of the sibling cipher library. It holds the key as table2 does, only folded into its
// tables.
#include "cipher/white_box_rounds.h"
#include "orvo/kova_mpi.h"
#include "platform/host/wb_encrypt_table.h"

int32_t wb_aes_encrypt(const uint8_t in[16], uint8_t out[16]) {
    orvo::RunTableCipher<orvo::kColumnsToTheRight>(g_wbEncryptTable, in, out);
    return 0;
}
