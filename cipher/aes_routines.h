// SPDX-License-Identifier: MIT
//
// The inner routines of AES-128, which processors with AES instructions do better. Round keys are
// the standard's, 11 of 16 bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvo {

struct AesRoutines {
    void (*encryptBlock)(const uint8_t* roundKeys, uint8_t* block);
    void (*decryptBlock)(const uint8_t* roundKeys, uint8_t* block);
    // CBC in place; iv is replaced by the last block of cipher text.
    void (*decryptCbc)(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks);
};

// For x86-64 with AES instructions.
namespace instructions {
void EncryptBlock(const uint8_t* roundKeys, uint8_t* block);
void DecryptBlock(const uint8_t* roundKeys, uint8_t* block);
void DecryptCbc(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks);
} // namespace instructions

// For those of them whose instructions take four blocks.
namespace wide_instructions {
void DecryptCbc(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks);
} // namespace wide_instructions

void DecryptBlockByLookUp(const uint8_t* roundKeys, uint8_t* block);
void DecryptCbcByLookUp(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks);

} // namespace orvo
