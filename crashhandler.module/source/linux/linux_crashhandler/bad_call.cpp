#include "linux/linux_crashhandler/bad_call.h"

#include <cstdint>

#include "linux/linux_crashhandler/fault_guard.h"
#include "linux/linux_crashhandler/modules.h"

namespace tarvo::crashhandler {
namespace {

bool StandsAtCode(std::uint64_t pc, const siginfo_t* info) {
  // For the other signals the fault address is the program counter by definition.
  const bool fetchFailed = info != nullptr &&
                           (info->si_signo == SIGSEGV || info->si_signo == SIGBUS) &&
                           reinterpret_cast<std::uint64_t>(info->si_addr) == pc;
  return !fetchFailed && IsCode(pc);
}

}  // namespace

bool MendBadCall(pid_t self, const siginfo_t* info, ucontext_t* context) {
  greg_t* registers = context->uc_mcontext.gregs;
  if (StandsAtCode(static_cast<std::uint64_t>(registers[REG_RIP]), info)) return false;
  volatile std::uint64_t returnAddress = 0;
  const auto* stack = reinterpret_cast<const volatile std::uint64_t*>(registers[REG_RSP]);
  if (!RunGuarded(self, [&] { returnAddress = *stack; }) || !IsCode(returnAddress)) return false;
  registers[REG_RIP] = static_cast<greg_t>(returnAddress);
  registers[REG_RSP] += static_cast<greg_t>(sizeof(std::uint64_t));
  return true;
}

}  // namespace tarvo::crashhandler
