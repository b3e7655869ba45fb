// A plugin of QEMU's user emulation that counts a program's instructions and system calls in windows: a
// window begins where the program writes to descriptor -1 more than three bytes, and ends where it writes
// three of them. Prints a line for each. Debian ships no header for QEMU's plugins: what is needed of their
// interface, version 1, is declared here.
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>

extern "C" {

struct qemu_plugin_tb;
struct qemu_plugin_insn;
using qemu_plugin_id_t = std::uint64_t;
using Translated = void (*)(qemu_plugin_id_t, qemu_plugin_tb *);
using Called = void (*)(qemu_plugin_id_t, unsigned, std::int64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                        std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t);

enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, Translated callback);
void qemu_plugin_register_vcpu_syscall_cb(qemu_plugin_id_t id, Called callback);
std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb *block);
qemu_plugin_insn *qemu_plugin_tb_get_insn(const qemu_plugin_tb *block, std::size_t place);
void qemu_plugin_register_vcpu_insn_exec_inline(qemu_plugin_insn *instruction, qemu_plugin_op operation,
                                                void *number, std::uint64_t summand);
void qemu_plugin_outs(const char *text);

__attribute__((visibility("default"))) extern const int qemu_plugin_version;
const int qemu_plugin_version = 1;

}  // extern "C"

namespace {

constexpr std::int64_t kWrite = 4;              // the system call's number on 32-bit ARM
constexpr std::uint32_t kNowhere = 0xFFFFFFFF;  // descriptor -1
constexpr std::uint64_t kEnd = 3;               // bytes of the mark that ends a window

std::uint64_t instructions = 0;
std::uint64_t calls = 0;

void count_block(qemu_plugin_id_t, qemu_plugin_tb *block) {
    for (std::size_t i = 0; i < qemu_plugin_tb_n_insns(block); i++) {
        qemu_plugin_register_vcpu_insn_exec_inline(qemu_plugin_tb_get_insn(block, i),
                                                   QEMU_PLUGIN_INLINE_ADD_U64, &instructions, 1);
    }
}

void count_call(qemu_plugin_id_t, unsigned, std::int64_t number, std::uint64_t descriptor, std::uint64_t,
                std::uint64_t length, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                std::uint64_t) {
    const bool mark = number == kWrite && static_cast<std::uint32_t>(descriptor) == kNowhere;
    if (!mark) {
        calls++;
        return;
    }
    if (length == kEnd) {
        char line[64];
        std::snprintf(line, sizeof line, "window %" PRIu64 " %" PRIu64 "\n", instructions, calls);
        qemu_plugin_outs(line);
    }
    instructions = 0;
    calls = 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id, const void *,
                                                                          int, char **) {
    qemu_plugin_register_vcpu_tb_trans_cb(id, count_block);
    qemu_plugin_register_vcpu_syscall_cb(id, count_call);
    return 0;
}
