#include "crash_guard/fault_facts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "crash_context/text_buffer.h"
#include "crash_guard/guard_state.h"
#include "crash_path/crash_services.h"
#include "tarvo/crash_report.h"

namespace tarvo {

namespace variable = crash_report::variable;

namespace {

/// A number of the kernel and what it means.
struct Meaning {
  int signal;  ///< 0: any
  int code;
  const char* text;
};

/// SYS_SECCOMP of the kernel, which glibc 2.36 does not name.
constexpr int kSeccompCode = 1;

constexpr Meaning kCodes[] = {
    {0, SI_USER, "SI_USER, sent by kill"},
    {0, SI_QUEUE, "SI_QUEUE, sent by sigqueue"},
    {0, SI_TIMER, "SI_TIMER, sent by a timer"},
    {0, SI_MESGQ, "SI_MESGQ, sent by a message queue"},
    {0, SI_ASYNCIO, "SI_ASYNCIO, sent by asynchronous input or output"},
    {0, SI_TKILL, "SI_TKILL, sent to this thread"},
    {0, SI_KERNEL, "SI_KERNEL, raised by the kernel"},
    {SIGSEGV, SEGV_MAPERR, "SEGV_MAPERR, address not mapped"},
    {SIGSEGV, SEGV_ACCERR, "SEGV_ACCERR, access not permitted"},
    {SIGSEGV, SEGV_BNDERR, "SEGV_BNDERR, address out of bounds"},
    {SIGSEGV, SEGV_PKUERR, "SEGV_PKUERR, protection key forbids access"},
    {SIGBUS, BUS_ADRALN, "BUS_ADRALN, address not aligned"},
    {SIGBUS, BUS_ADRERR, "BUS_ADRERR, no memory at the address"},
    {SIGBUS, BUS_OBJERR, "BUS_OBJERR, hardware error of an object"},
    {SIGBUS, BUS_MCEERR_AR, "BUS_MCEERR_AR, broken memory was read"},
    {SIGBUS, BUS_MCEERR_AO, "BUS_MCEERR_AO, broken memory was found"},
    {SIGILL, ILL_ILLOPC, "ILL_ILLOPC, illegal opcode"},
    {SIGILL, ILL_ILLOPN, "ILL_ILLOPN, illegal operand"},
    {SIGILL, ILL_ILLADR, "ILL_ILLADR, illegal addressing mode"},
    {SIGILL, ILL_ILLTRP, "ILL_ILLTRP, illegal trap"},
    {SIGILL, ILL_PRVOPC, "ILL_PRVOPC, privileged opcode"},
    {SIGILL, ILL_PRVREG, "ILL_PRVREG, privileged register"},
    {SIGILL, ILL_COPROC, "ILL_COPROC, coprocessor error"},
    {SIGILL, ILL_BADSTK, "ILL_BADSTK, internal stack error"},
    {SIGFPE, FPE_INTDIV, "FPE_INTDIV, integer divided by zero"},
    {SIGFPE, FPE_INTOVF, "FPE_INTOVF, integer overflow"},
    {SIGFPE, FPE_FLTDIV, "FPE_FLTDIV, floating-point number divided by zero"},
    {SIGFPE, FPE_FLTOVF, "FPE_FLTOVF, floating-point overflow"},
    {SIGFPE, FPE_FLTUND, "FPE_FLTUND, floating-point underflow"},
    {SIGFPE, FPE_FLTRES, "FPE_FLTRES, floating-point result not exact"},
    {SIGFPE, FPE_FLTINV, "FPE_FLTINV, floating-point operation not valid"},
    {SIGFPE, FPE_FLTSUB, "FPE_FLTSUB, subscript out of range"},
    {SIGTRAP, TRAP_BRKPT, "TRAP_BRKPT, breakpoint"},
    {SIGTRAP, TRAP_TRACE, "TRAP_TRACE, single step"},
    {SIGTRAP, TRAP_BRANCH, "TRAP_BRANCH, branch"},
    {SIGTRAP, TRAP_HWBKPT, "TRAP_HWBKPT, hardware breakpoint"},
    {SIGSYS, kSeccompCode, "SYS_SECCOMP, system call trapped by a filter"},
};

struct Register {
  const char* name;
  int index;
};

constexpr Register kRegisters[] = {{variable::kFaultProgramCounter.data(), REG_RIP},
                                   {"Fault_rsp", REG_RSP},
                                   {"Fault_rax", REG_RAX},
                                   {"Fault_rbx", REG_RBX},
                                   {"Fault_rcx", REG_RCX},
                                   {"Fault_rdx", REG_RDX},
                                   {"Fault_rsi", REG_RSI},
                                   {"Fault_rdi", REG_RDI},
                                   {"Fault_rbp", REG_RBP},
                                   {"Fault_r8", REG_R8},
                                   {"Fault_r9", REG_R9},
                                   {"Fault_r10", REG_R10},
                                   {"Fault_r11", REG_R11},
                                   {"Fault_r12", REG_R12},
                                   {"Fault_r13", REG_R13},
                                   {"Fault_r14", REG_R14},
                                   {"Fault_r15", REG_R15},
                                   {"Fault_eflags", REG_EFL}};
static_assert(std::ranges::all_of(kRegisters, [](const Register& known) {
  return std::string_view(known.name).starts_with(variable::kFaultRegisterPrefix);
}));

/// The facts with their texts, which the report reads later.
struct Facts {
  TextBuffer<64> code;
  TextBuffer<64> origin;
  std::array<TextBuffer<20>, std::size(kRegisters)> registers;
  std::array<NameAndValue, 3 + std::size(kRegisters)> items;
};
constinit Facts g_facts;

void DescribeCode(const siginfo_t& info) {
  for (const Meaning& known : kCodes)
    if (known.code == info.si_code && (known.signal == 0 || known.signal == info.si_signo))
      return g_facts.code.Append(known.text);
  g_facts.code.AppendDecimal(info.si_code);
}

/// Where the signal came from; the name of that fact.
const char* DescribeOrigin(const siginfo_t& info) {
  if (info.si_code > 0) {
    g_facts.origin.AppendAddress(reinterpret_cast<std::uint64_t>(info.si_addr));
    return variable::kFaultAddress.data();
  }
  g_facts.origin.Append("process ");
  g_facts.origin.AppendDecimal(info.si_pid);
  g_facts.origin.Append(", user ");
  g_facts.origin.AppendDecimal(info.si_uid);
  return variable::kFaultSender.data();
}

}  // namespace

void PublishFaultFacts(pid_t self, int signal, const SignalFrame& frame) {
  std::size_t count = 0;
  g_facts.items[count++] = {variable::kFaultSignal.data(), NameOf(kCrashSignals, signal)};
  if (frame.info != nullptr) {
    DescribeCode(*frame.info);
    const char* origin = DescribeOrigin(*frame.info);
    g_facts.items[count++] = {variable::kFaultCode.data(), g_facts.code.Text()};
    g_facts.items[count++] = {origin, g_facts.origin.Text()};
  }
  if (frame.context != nullptr) {
    for (std::size_t i = 0; i < std::size(kRegisters); ++i) {
      const auto value = frame.context->uc_mcontext.gregs[kRegisters[i].index];
      g_facts.registers[i].AppendAddress(static_cast<std::uint64_t>(value));
      g_facts.items[count++] = {kRegisters[i].name, g_facts.registers[i].Text()};
    }
  }
  AddCrashVariables(self, std::span(g_facts.items).first(count));
}

}  // namespace tarvo
