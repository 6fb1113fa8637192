/*
 * A plugin of the user-mode emulator that counts the instructions of the sections of a program (section.h).
 *
 * usage: qemu-arm -plugin libcount_instructions.so,out=FILE ...
 *
 * Writes a line for each section that ends, "<section> <instructions>", and one for each system call in it,
 * "<section> <instructions up to it> <number of the call>". An instruction that reads the processor's counter counts as
 * one, as on the board: the emulator's work to answer it is not counted. Supports one thread only.
 */
#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

/* Version 1 of the interface, as far as this plugin uses it: the distribution does not ship its header. */
typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t qemu_info_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS };
typedef void (*translated_t)(qemu_plugin_id_t, struct qemu_plugin_tb *);
typedef void (*executed_t)(unsigned int cpu, void *data);
typedef void (*system_call_t)(qemu_plugin_id_t, unsigned int cpu, int64_t number, uint64_t, uint64_t, uint64_t,
                              uint64_t, uint64_t, uint64_t, uint64_t, uint64_t);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, translated_t);
void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn *, executed_t, enum qemu_plugin_cb_flags,
                                            void *data);
void qemu_plugin_register_vcpu_syscall_cb(qemu_plugin_id_t, system_call_t);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *);
struct qemu_plugin_insn *qemu_plugin_tb_get_insn(const struct qemu_plugin_tb *, size_t);
const void *qemu_plugin_insn_data(const struct qemu_plugin_insn *);
size_t qemu_plugin_insn_size(const struct qemu_plugin_insn *);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn *);

#define EXPORT __attribute__((visibility("default")))
EXPORT int qemu_plugin_version = 1;

enum { kSectionBegin = 32, kSectionEnd = 64, kMaxSections = 32 }; /* as in section.h */
enum { kOther, kCounterRead = 1 };                                /* below the markers */
enum { kNoSection = -1 };

static FILE *out;
static int section = kNoSection;
static uint64_t count;
static uint64_t resume_at; /* address behind the counter instruction being answered; 0: none */

static uint32_t word_of(const uint8_t *bytes, bool thumb)
{
    const uint32_t low = bytes[0] | (uint32_t)bytes[1] << 8;
    const uint32_t high = bytes[2] | (uint32_t)bytes[3] << 8;
    return thumb ? low << 16 | high : high << 16 | low;
}

static uint32_t kind_of(const struct qemu_plugin_insn *instruction)
{
    if (qemu_plugin_insn_size(instruction) != 4)
        return kOther;
    const uint8_t *bytes = qemu_plugin_insn_data(instruction);
    const uint32_t arm = word_of(bytes, false);
    const uint32_t thumb = word_of(bytes, true);
    const uint32_t hint = (thumb & 0xffffff00) == 0xf3af8000 ? thumb & 0xff
                          : (arm & 0xffffff00) == 0xe320f000 ? arm & 0xff
                                                             : 0;
    if (hint >= kSectionBegin && hint < kSectionEnd + kMaxSections)
        return hint;
    return (arm & 0x0ff00fff) == 0x0c500f1e || (thumb & 0x0ff00fff) == 0x0c500f1e ? kCounterRead : kOther;
}

/* data: address of the instruction and, in the lowest byte, its kind. */
static void executed(unsigned int cpu, void *data)
{
    (void)cpu;
    const uint64_t address = (uintptr_t)data >> 8;
    const uint32_t kind = (uintptr_t)data & 0xff;
    if (resume_at != 0 && address != resume_at)
        return;
    resume_at = 0;
    if (kind >= kSectionEnd) {
        if (section == (int)kind - kSectionEnd)
            fprintf(out, "%d %" PRIu64 "\n", section, count);
        section = kNoSection;
    } else if (kind >= kSectionBegin) {
        section = (int)kind - kSectionBegin;
        count = 0;
    } else if (section != kNoSection) {
        ++count;
        if (kind == kCounterRead)
            resume_at = address + 4;
    }
}

static void system_call(qemu_plugin_id_t id, unsigned int cpu, int64_t number, uint64_t a, uint64_t b, uint64_t c,
                        uint64_t d, uint64_t e, uint64_t f, uint64_t g, uint64_t h)
{
    (void)id, (void)cpu, (void)a, (void)b, (void)c, (void)d, (void)e, (void)f, (void)g, (void)h;
    if (section != kNoSection && resume_at == 0)
        fprintf(out, "%d %" PRIu64 " %" PRId64 "\n", section, count, number);
    fflush(out); /* the last system call ends the process */
}

static void translated(qemu_plugin_id_t id, struct qemu_plugin_tb *block)
{
    (void)id;
    for (size_t i = 0; i < qemu_plugin_tb_n_insns(block); ++i) {
        struct qemu_plugin_insn *instruction = qemu_plugin_tb_get_insn(block, i);
        const uint64_t data = qemu_plugin_insn_vaddr(instruction) << 8 | kind_of(instruction);
        qemu_plugin_register_vcpu_insn_exec_cb(instruction, executed, QEMU_PLUGIN_CB_NO_REGS, (void *)(uintptr_t)data);
    }
}

EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t *info, int argc, char **argv)
{
    (void)info;
    static const char kOut[] = "out=";
    for (int i = 0; i < argc; ++i)
        if (strncmp(argv[i], kOut, sizeof kOut - 1) == 0)
            out = fopen(argv[i] + sizeof kOut - 1, "we");
    if (!out) {
        fprintf(stderr, "count_instructions: no file to write to; out=FILE names it\n");
        return -1;
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    qemu_plugin_register_vcpu_syscall_cb(id, system_call);
    return 0;
}
