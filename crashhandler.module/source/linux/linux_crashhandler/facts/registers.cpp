#include "linux/linux_crashhandler/facts/registers.h"

#include <cstdint>
#include <cstring>
#include <iterator>

#include "linux/linux_crashhandler/base/capture_memory.h"

namespace tarvo::crashhandler {
namespace {

/// Where a register stands in the page, and how wide it is there. In the order of the report.
struct RegisterField {
  const char* name;
  std::size_t offset;
  std::size_t size;
};

#define GENERAL(field) \
  {#field, offsetof(ThreadRegisters, general.field), sizeof(user_regs_struct::field)}
#define FLOATING(name, field) \
  {name, offsetof(ThreadRegisters, floating.field), sizeof(user_fpregs_struct::field)}
// Only the first 32-bit word of a register's 16-byte slot.
#define STACK(index) \
  {"st" #index, offsetof(ThreadRegisters, floating.st_space) + 16 * (index), sizeof(std::uint32_t)}

constexpr RegisterField kRegisters[] = {
    GENERAL(rax), GENERAL(rbx), GENERAL(rcx), GENERAL(rdx), GENERAL(rdi), GENERAL(orig_rax),
    GENERAL(rsi), GENERAL(rbp), GENERAL(rsp), GENERAL(r8), GENERAL(r9), GENERAL(r10), GENERAL(r11),
    GENERAL(r12), GENERAL(r13), GENERAL(r14), GENERAL(r15), GENERAL(rip), GENERAL(eflags),
    GENERAL(cs), GENERAL(ss), GENERAL(fs_base), GENERAL(gs_base), GENERAL(ds), GENERAL(es),
    GENERAL(fs), GENERAL(gs),
    // "rip" stands twice: this one is the instruction pointer of the floating-point unit.
    FLOATING("cwd", cwd), FLOATING("swd", swd), FLOATING("ftw", ftw), FLOATING("fop", fop),
    FLOATING("rip", rip), FLOATING("rdp", rdp), FLOATING("mxcsr", mxcsr),
    FLOATING("mxcr_mask", mxcr_mask), STACK(0), STACK(1), STACK(2), STACK(3), STACK(4), STACK(5),
    STACK(6), STACK(7)};
static_assert(std::size(kRegisters) == 43);

#undef GENERAL
#undef FLOATING
#undef STACK

}  // namespace

void DecodeRegisters(ThreadRecord& thread, const ThreadRegisters& registers) {
  for (const RegisterField& field : kRegisters) {
    RegisterValue* value = Append(thread.registers);
    if (value == nullptr) return;
    value->name = field.name;
    value->width = sizeof(std::uint64_t);
    std::memcpy(value->value, reinterpret_cast<const char*>(&registers) + field.offset, field.size);
  }
}

}  // namespace tarvo::crashhandler
