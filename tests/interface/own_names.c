/* SPDX-License-Identifier: MIT */
/*
 * Functions and objects of an application under names that libkova_fr has, too, in other shapes. Nobody
 * but the application itself may call them.
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int g_ownCalls;

/* A context of 8 bytes, where libkova_fr has one of 192. */
typedef struct {
    uint32_t key, iv;
} AES_ctx;

#define OWN(name)                                            \
    void name(void);                                         \
    void name(void) {                                        \
        fputs("somebody else calls my " #name "\n", stderr); \
        abort();                                             \
    }

void AES_init_ctx_iv(AES_ctx* ctx, uint32_t key, uint32_t iv);
void AES_init_ctx_iv(AES_ctx* ctx, uint32_t key, uint32_t iv) {
    ctx->key = key;
    ctx->iv = iv;
    ++g_ownCalls;
}
void* memcpy_s(const void* from, size_t count);
void* memcpy_s(const void* from, size_t count) {
    void* copy = malloc(count);
    ++g_ownCalls;
    return copy == NULL ? NULL : memcpy(copy, from, count);
}
OWN(AES_CBC_decrypt_buffer)
OWN(AES_CBC_encrypt_buffer)
OWN(AES_init_ctx)
OWN(AlignDecrypt)
OWN(AlignRun)
OWN(CheckInput)
OWN(FrDecrypt)
OWN(FrRun)
OWN(ImageResizeBilin)
OWN(ImageResizeInit)
OWN(ImageWarpAffine)
OWN(decode)
OWN(get_custom_data)
OWN(memset_s)
OWN(psr_init)
OWN(psr_next)
OWN(wb_aes_decrypt)
OWN(wb_aes_decrypt_cbc)
char table2[3] = "own";
char g_bilinLUT[5] = "mine";

int call_own_names(void);
int call_own_names(void) {
    AES_ctx ctx = {0, 0};
    char* copy;
    int same;
    AES_init_ctx_iv(&ctx, 1, 2);
    copy = memcpy_s(g_bilinLUT, sizeof g_bilinLUT);
    same = copy != NULL && strcmp(copy, "mine") == 0;
    free(copy);
    return same && ctx.key == 1 && ctx.iv == 2 && memcmp(table2, "own", 3) == 0 && g_ownCalls == 2;
}
