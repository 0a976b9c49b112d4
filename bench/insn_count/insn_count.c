/* SPDX-License-Identifier: MIT */
/*
 * A plugin for QEMU's user mode that counts the guest instructions that a program executes and
 * prints "instructions N" on standard error when it ends.
 *
 *     gcc -O2 -shared -fPIC -o insn_count.so insn_count.c
 *     qemu-arm -plugin ./insn_count.so PROGRAM
 *
 * The few functions of the plugin interface (version 1) that it needs are declared here, since
 * distributions do not package the header.
 */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define EXPORTED __attribute__((visibility("default")))

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_info;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*callback)(qemu_plugin_id_t,
                                                            struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, enum qemu_plugin_op op,
                                              void* counter, uint64_t amount);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*callback)(qemu_plugin_id_t, void*),
                                    void* data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);

EXPORTED int qemu_plugin_version = 1;

static uint64_t instructions;

/* Each translated block adds its length whenever it is entered. */
static void on_translation(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &instructions,
                                             qemu_plugin_tb_n_insns(block));
}

static void at_end(qemu_plugin_id_t id, void* data) {
    (void)id;
    (void)data;
    fprintf(stderr, "instructions %" PRIu64 "\n", instructions);
}

EXPORTED int qemu_plugin_install(qemu_plugin_id_t id, const struct qemu_info* info, int argc,
                                 char** argv) {
    (void)info;
    (void)argc;
    (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translation);
    qemu_plugin_register_atexit_cb(id, at_end, NULL);
    return 0;
}
