#include "vswitch/dataplane/tag_marks.h"

#include <linux/bpf.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vswitch {
namespace {

// As in the kernel's own notation; offsets of jumps are counted from the next instruction.
constexpr bpf_insn instruction(int code, int to, int from, int offset, int value) {
    return {static_cast<std::uint8_t>(code), static_cast<std::uint8_t>(to & 15),
            static_cast<std::uint8_t>(from & 15), static_cast<std::int16_t>(offset), value};
}
constexpr bpf_insn load(int size, int to, int from, std::size_t offset) {
    return instruction(BPF_LDX | BPF_MEM | size, to, from, static_cast<int>(offset), 0);
}
constexpr bpf_insn store(int size, int to, int from, int offset) {
    return instruction(BPF_STX | BPF_MEM | size, to, from, offset, 0);
}
constexpr bpf_insn move(int to, int from) {
    return instruction(BPF_ALU64 | BPF_MOV | BPF_X, to, from, 0, 0);
}
constexpr bpf_insn set(int to, int value) {
    return instruction(BPF_ALU64 | BPF_MOV | BPF_K, to, 0, 0, value);
}
constexpr bpf_insn apply(int operation, int to, int value) {
    return instruction(BPF_ALU64 | operation | BPF_K, to, 0, 0, value);
}
constexpr bpf_insn jumpIf(int condition, int left, int right, int offset) {
    return instruction(BPF_JMP | condition | BPF_K, left, 0, offset, right);
}
constexpr bpf_insn jumpIfAbove(int left, int right, int offset) {
    return instruction(BPF_JMP | BPF_JGT | BPF_X, left, right, offset, 0);
}
constexpr bpf_insn call(int helper) {
    return instruction(BPF_JMP | BPF_CALL, 0, 0, 0, helper);
}
constexpr bpf_insn finish() {
    return instruction(BPF_JMP | BPF_EXIT, 0, 0, 0, 0);
}

// A number of two bytes as a program reads it from a frame.
constexpr int onWire(int value) {
    return std::endian::native == std::endian::little ? (value & 0xff) << 8 | (value >> 8 & 0xff) : value;
}
// The four bytes of an 802.1Q tag.
constexpr int tag(int vlan) {
    const int first = onWire(0x8100), second = onWire(vlan);
    return std::endian::native == std::endian::little ? first | second << 16 : first << 16 | second;
}

constexpr int r0 = BPF_REG_0, r1 = BPF_REG_1, r2 = BPF_REG_2, r3 = BPF_REG_3, r4 = BPF_REG_4, r6 = BPF_REG_6,
              r7 = BPF_REG_7;

constexpr std::array kProgram = {
    move(r6, r1),
    // r1: the frame, r2: its end. Shorter than a tagged header: nothing to do.
    load(BPF_W, r2, r6, offsetof(xdp_md, data_end)),
    load(BPF_W, r1, r6, offsetof(xdp_md, data)),
    move(r3, r1),
    apply(BPF_ADD, r3, 18),
    jumpIfAbove(r3, r2, 27),  // to "pass"
    load(BPF_H, r3, r1, 12),
    set(r7, tag(0)),
    jumpIf(BPF_JEQ, r3, onWire(0x88a8), 8),   // to "mark"
    jumpIf(BPF_JNE, r3, onWire(0x8100), 23),  // to "pass"
    load(BPF_H, r3, r1, 14),
    move(r4, r3),
    apply(BPF_AND, r4, onWire(0x0fff)),
    jumpIf(BPF_JEQ, r4, onWire(0x0fff), 21),     // to "drop"
    jumpIf(BPF_JSET, r3, onWire(0x1000), 1),     // drop-eligible
    instruction(BPF_JMP | BPF_JA, 0, 0, 17, 0),  // to "pass"
    set(r7, tag(0x0fff)),
    // "mark": four bytes more in front, the addresses moved there, the tag behind them.
    move(r1, r6),
    set(r2, -4),
    call(BPF_FUNC_xdp_adjust_head),
    jumpIf(BPF_JNE, r0, 0, 12),  // to "pass"
    load(BPF_W, r2, r6, offsetof(xdp_md, data_end)),
    load(BPF_W, r1, r6, offsetof(xdp_md, data)),
    move(r3, r1),
    apply(BPF_ADD, r3, 18),
    jumpIfAbove(r3, r2, 7),  // to "pass"
    load(BPF_W, r3, r1, 4),
    store(BPF_W, r1, r3, 0),
    load(BPF_W, r3, r1, 8),
    store(BPF_W, r1, r3, 4),
    load(BPF_W, r3, r1, 12),
    store(BPF_W, r1, r3, 8),
    store(BPF_W, r1, r7, 12),
    // "pass"
    set(r0, XDP_PASS),
    finish(),
    // "drop"
    set(r0, XDP_DROP),
    finish(),
};

}  // namespace

Descriptor loadTagMarks() {
    union bpf_attr attributes;
    std::memset(&attributes, 0, sizeof attributes);
    attributes.prog_type = BPF_PROG_TYPE_XDP;
    attributes.insn_cnt = kProgram.size();
    attributes.insns = reinterpret_cast<std::uintptr_t>(kProgram.data());
    attributes.license = reinterpret_cast<std::uintptr_t>("");
    return Descriptor(static_cast<int>(::syscall(SYS_bpf, BPF_PROG_LOAD, &attributes, sizeof attributes)));
}

}  // namespace vswitch
