/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The models as they lie in the library: one weight and one bias array per parametric layer, the
 * registries that list them, and the key material that opens them.
 *
 * At load every array's whole 16-byte blocks are enciphered (the last length % 16 bytes are plain).
 * OrvoFrInit() deciphers them in place and wipes the key material; from then on the networks read
 * the arrays by name. Weights are in the order that the layer's kernel reads (q7_kernels.h), unused
 * bytes at the end of an array are 0; biases are at the accumulator's fixed-point position.
 *
 * The definitions are written by pack_models during the build.
 *
 * Threads: nothing may read an array while OrvoFrInit() runs.
 */
#ifndef ORVO_MODEL_STORE_H
#define ORVO_MODEL_STORE_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/** One parameter array of a model. On the 32-bit target an entry has 16 bytes. */
typedef struct ModelArray {
    uint32_t elementSize; /**< 1: weights (int8_t); 4: biases (int32_t) */
    const char* name;     /**< the array's own symbol name */
    void* data;           /**< the array */
    uint32_t size;        /**< its length in bytes */
} ModelArray;

/** Every array of a model in the order of the layer numbers, a layer's weights before its biases.
 */
ORVO_API extern ModelArray g_alignArray[76];
ORVO_API extern ModelArray g_frArray[108];

/* A model's AES-128 key, wrapped by the white-box cipher (CBC with padding); the IV of the
 * wrapping; the IV from which every array's CBC stream starts. Zeroed by OrvoFrInit(). */
ORVO_API extern uint8_t g_alignWb[32];
ORVO_API extern uint8_t g_alignWbIv[16];
ORVO_API extern uint8_t g_alignAesIv[16];
ORVO_API extern uint8_t g_frWb[32];
ORVO_API extern uint8_t g_frWbIv[16];
ORVO_API extern uint8_t g_frAesIv[16];

/* ---- Alignment network ------------------------------------------------------------------------
 */

ORVO_API extern int8_t g_alignWeights0[296];
ORVO_API extern int32_t g_alignBias0[32];
ORVO_API extern int8_t g_alignWeights1[832];
ORVO_API extern int32_t g_alignBias1[18];
ORVO_API extern int8_t g_alignWeights2[162];
ORVO_API extern int32_t g_alignBias2[18];
ORVO_API extern int8_t g_alignWeights4[936];
ORVO_API extern int32_t g_alignBias4[36];
ORVO_API extern int8_t g_alignWeights5[324];
ORVO_API extern int32_t g_alignBias5[36];
ORVO_API extern int8_t g_alignWeights7[720];
ORVO_API extern int32_t g_alignBias7[20];
ORVO_API extern int8_t g_alignWeights8[180];
ORVO_API extern int32_t g_alignBias8[20];
ORVO_API extern int8_t g_alignWeights10[800];
ORVO_API extern int32_t g_alignBias10[40];
ORVO_API extern int8_t g_alignWeights11[360];
ORVO_API extern int32_t g_alignBias11[40];
ORVO_API extern int8_t g_alignWeights13[1200];
ORVO_API extern int32_t g_alignBias13[22];
ORVO_API extern int8_t g_alignWeights14[198];
ORVO_API extern int32_t g_alignBias14[22];
ORVO_API extern int8_t g_alignWeights16[1320];
ORVO_API extern int32_t g_alignBias16[44];
ORVO_API extern int8_t g_alignWeights17[396];
ORVO_API extern int32_t g_alignBias17[44];
ORVO_API extern int8_t g_alignWeights20[1056];
ORVO_API extern int32_t g_alignBias20[24];
ORVO_API extern int8_t g_alignWeights21[216];
ORVO_API extern int32_t g_alignBias21[24];
ORVO_API extern int8_t g_alignWeights23[1152];
ORVO_API extern int32_t g_alignBias23[48];
ORVO_API extern int8_t g_alignWeights24[432];
ORVO_API extern int32_t g_alignBias24[48];
ORVO_API extern int8_t g_alignWeights26[1632];
ORVO_API extern int32_t g_alignBias26[26];
ORVO_API extern int8_t g_alignWeights27[234];
ORVO_API extern int32_t g_alignBias27[26];
ORVO_API extern int8_t g_alignWeights29[1768];
ORVO_API extern int32_t g_alignBias29[52];
ORVO_API extern int8_t g_alignWeights30[468];
ORVO_API extern int32_t g_alignBias30[52];
ORVO_API extern int8_t g_alignWeights32[1456];
ORVO_API extern int32_t g_alignBias32[28];
ORVO_API extern int8_t g_alignWeights33[252];
ORVO_API extern int32_t g_alignBias33[28];
ORVO_API extern int8_t g_alignWeights35[1568];
ORVO_API extern int32_t g_alignBias35[56];
ORVO_API extern int8_t g_alignWeights36[504];
ORVO_API extern int32_t g_alignBias36[56];
ORVO_API extern int8_t g_alignWeights39[2128];
ORVO_API extern int32_t g_alignBias39[30];
ORVO_API extern int8_t g_alignWeights40[270];
ORVO_API extern int32_t g_alignBias40[30];
ORVO_API extern int8_t g_alignWeights42[2280];
ORVO_API extern int32_t g_alignBias42[60];
ORVO_API extern int8_t g_alignWeights43[540];
ORVO_API extern int32_t g_alignBias43[60];
ORVO_API extern int8_t g_alignWeights45[1920];
ORVO_API extern int32_t g_alignBias45[32];
ORVO_API extern int8_t g_alignWeights46[288];
ORVO_API extern int32_t g_alignBias46[32];
ORVO_API extern int8_t g_alignWeights48[2048];
ORVO_API extern int32_t g_alignBias48[64];
ORVO_API extern int8_t g_alignWeights49[576];
ORVO_API extern int32_t g_alignBias49[64];
ORVO_API extern int8_t g_alignWeights51[2688];
ORVO_API extern int32_t g_alignBias51[34];
ORVO_API extern int8_t g_alignWeights52[306];
ORVO_API extern int32_t g_alignBias52[34];
ORVO_API extern int8_t g_alignWeights54[2856];
ORVO_API extern int32_t g_alignBias54[68];
ORVO_API extern int8_t g_alignWeights55[612];
ORVO_API extern int32_t g_alignBias55[68];
ORVO_API extern int8_t g_alignWeights58[272];
ORVO_API extern int32_t g_alignBias58[4];

/* ---- Recognition network ----------------------------------------------------------------------
 */

ORVO_API extern int8_t g_frWeights0[872];
ORVO_API extern int32_t g_frBias0[32];
ORVO_API extern int8_t g_frWeights2[288];
ORVO_API extern int32_t g_frBias2[32];
ORVO_API extern int8_t g_frWeights5[288];
ORVO_API extern int32_t g_frBias5[32];
ORVO_API extern int8_t g_frWeights7[2048];
ORVO_API extern int32_t g_frBias7[64];
ORVO_API extern int8_t g_frWeights9[576];
ORVO_API extern int32_t g_frBias9[64];
ORVO_API extern int8_t g_frWeights11[576];
ORVO_API extern int32_t g_frBias11[64];
ORVO_API extern int8_t g_frWeights14[2048];
ORVO_API extern int32_t g_frBias14[32];
ORVO_API extern int8_t g_frWeights15[2048];
ORVO_API extern int32_t g_frBias15[64];
ORVO_API extern int8_t g_frWeights17[576];
ORVO_API extern int32_t g_frBias17[64];
ORVO_API extern int8_t g_frWeights19[2048];
ORVO_API extern int32_t g_frBias19[32];
ORVO_API extern int8_t g_frWeights21[2048];
ORVO_API extern int32_t g_frBias21[64];
ORVO_API extern int8_t g_frWeights23[576];
ORVO_API extern int32_t g_frBias23[64];
ORVO_API extern int8_t g_frWeights25[2048];
ORVO_API extern int32_t g_frBias25[32];
ORVO_API extern int8_t g_frWeights27[2048];
ORVO_API extern int32_t g_frBias27[64];
ORVO_API extern int8_t g_frWeights29[576];
ORVO_API extern int32_t g_frBias29[64];
ORVO_API extern int8_t g_frWeights31[2048];
ORVO_API extern int32_t g_frBias31[32];
ORVO_API extern int8_t g_frWeights33[2048];
ORVO_API extern int32_t g_frBias33[64];
ORVO_API extern int8_t g_frWeights35[576];
ORVO_API extern int32_t g_frBias35[64];
ORVO_API extern int8_t g_frWeights37[2048];
ORVO_API extern int32_t g_frBias37[32];
ORVO_API extern int8_t g_frWeights39[4096];
ORVO_API extern int32_t g_frBias39[128];
ORVO_API extern int8_t g_frWeights41[1152];
ORVO_API extern int32_t g_frBias41[128];
ORVO_API extern int8_t g_frWeights43[1152];
ORVO_API extern int32_t g_frBias43[128];
ORVO_API extern int8_t g_frWeights46[8192];
ORVO_API extern int32_t g_frBias46[64];
ORVO_API extern int8_t g_frWeights47[8192];
ORVO_API extern int32_t g_frBias47[128];
ORVO_API extern int8_t g_frWeights49[1152];
ORVO_API extern int32_t g_frBias49[128];
ORVO_API extern int8_t g_frWeights51[8192];
ORVO_API extern int32_t g_frBias51[64];
ORVO_API extern int8_t g_frWeights53[8192];
ORVO_API extern int32_t g_frBias53[128];
ORVO_API extern int8_t g_frWeights55[1152];
ORVO_API extern int32_t g_frBias55[128];
ORVO_API extern int8_t g_frWeights57[8192];
ORVO_API extern int32_t g_frBias57[64];
ORVO_API extern int8_t g_frWeights59[8192];
ORVO_API extern int32_t g_frBias59[128];
ORVO_API extern int8_t g_frWeights61[1152];
ORVO_API extern int32_t g_frBias61[128];
ORVO_API extern int8_t g_frWeights63[8192];
ORVO_API extern int32_t g_frBias63[64];
ORVO_API extern int8_t g_frWeights65[8192];
ORVO_API extern int32_t g_frBias65[128];
ORVO_API extern int8_t g_frWeights67[1152];
ORVO_API extern int32_t g_frBias67[128];
ORVO_API extern int8_t g_frWeights69[8192];
ORVO_API extern int32_t g_frBias69[64];
ORVO_API extern int8_t g_frWeights71[8192];
ORVO_API extern int32_t g_frBias71[128];
ORVO_API extern int8_t g_frWeights73[1152];
ORVO_API extern int32_t g_frBias73[128];
ORVO_API extern int8_t g_frWeights75[8192];
ORVO_API extern int32_t g_frBias75[64];
ORVO_API extern int8_t g_frWeights77[8192];
ORVO_API extern int32_t g_frBias77[128];
ORVO_API extern int8_t g_frWeights79[1152];
ORVO_API extern int32_t g_frBias79[128];
ORVO_API extern int8_t g_frWeights81[8192];
ORVO_API extern int32_t g_frBias81[64];
ORVO_API extern int8_t g_frWeights83[16384];
ORVO_API extern int32_t g_frBias83[256];
ORVO_API extern int8_t g_frWeights85[2304];
ORVO_API extern int32_t g_frBias85[256];
ORVO_API extern int8_t g_frWeights87[2304];
ORVO_API extern int32_t g_frBias87[256];
ORVO_API extern int8_t g_frWeights90[16384];
ORVO_API extern int32_t g_frBias90[64];
ORVO_API extern int8_t g_frWeights91[8192];
ORVO_API extern int32_t g_frBias91[128];
ORVO_API extern int8_t g_frWeights93[1152];
ORVO_API extern int32_t g_frBias93[128];
ORVO_API extern int8_t g_frWeights95[8192];
ORVO_API extern int32_t g_frBias95[64];
ORVO_API extern int8_t g_frWeights97[8192];
ORVO_API extern int32_t g_frBias97[128];
ORVO_API extern int8_t g_frWeights99[1152];
ORVO_API extern int32_t g_frBias99[128];
ORVO_API extern int8_t g_frWeights101[8192];
ORVO_API extern int32_t g_frBias101[64];
ORVO_API extern int8_t g_frWeights103[16384];
ORVO_API extern int32_t g_frBias103[256];
ORVO_API extern int8_t g_frWeights105[9216];
ORVO_API extern int32_t g_frBias105[256];
ORVO_API extern int8_t g_frWeights106[32768];
ORVO_API extern int32_t g_frBias106[128];

ORVO_C_END

#endif
