#include "linux/linux_crashhandler/walking/stack_walk.h"

#include "crash_context/readable_memory.h"
#include "crash_context/signal_frame.h"
#include "linux/linux_crashhandler/facts/code_ranges.h"
#include "linux/linux_crashhandler/walking/unwind_from.h"

namespace tarvo::crashhandler {
namespace {

/// How far above the stack pointer a return address is looked for.
constexpr std::size_t kScannedWords = 512;
/// Of these, how many a small function that keeps no frame pointer has for itself.
constexpr std::size_t kNearWords = 6;
/// A frame is no larger, as far as frame pointers are believed.
constexpr std::uint64_t kLargestFrame = 1 << 20;
/// How far behind its start a place is taken to be in the same function.
constexpr std::uint64_t kLargeFunction = 1 << 14;
constexpr std::uint64_t kWord = sizeof(std::uint64_t);

/// What a function keeps for its caller (System V ABI AMD64 1.0, figure 3.4), so that the unwinder
/// knows it in every frame: rbx, rbp, r12 … r15.
constexpr int kPreserved[] = {3, WalkRegisters::kFramePointer, 12, 13, 14, 15};

/// One run of the unwinder.
struct Run {
  Stack& stack;
  bool isStub = true;   ///< the next entry is the function that starts the unwinder
  bool isFirst = true;  ///< the next entry is the frame that the run starts at
};

/// The registers at an entry. Those that are not preserved stay what they were.
WalkRegisters RegistersOf(_Unwind_Context* context, WalkRegisters registers) {
  registers.value[WalkRegisters::kProgramCounter] = _Unwind_GetIP(context);
  registers.value[WalkRegisters::kStackPointer] = _Unwind_GetCFA(context);
  for (const int number : kPreserved)
    registers.value[static_cast<std::size_t>(number)] = _Unwind_GetGR(context, number);
  return registers;
}

_Unwind_Reason_Code AppendEntry(_Unwind_Context* context, void* to) {
  auto& run = *static_cast<Run*>(to);
  Stack& stack = run.stack;
  if (run.isStub || run.isFirst) {
    run.isFirst = run.isStub;
    run.isStub = false;
    return _URC_NO_REASON;
  }
  const std::uint64_t pc = _Unwind_GetIP(context);
  // Above the outermost function the unwinder finds nothing. No progress: a damaged or hand-made
  // frame that is its own caller.
  if (pc == 0 ||
      (pc == stack.last.ProgramCounter() && _Unwind_GetCFA(context) == stack.last.StackPointer())) {
    stack.isAtEnd = true;
    return _URC_END_OF_STACK;
  }
  stack.last = RegistersOf(context, stack.last);
  stack.Add(pc);
  const bool isEnd = stack.count == kMaximumFrames || IsSignalTrampoline(pc);
  return isEnd ? _URC_END_OF_STACK : _URC_NO_REASON;
}

std::uint64_t WordAt(std::uint64_t address) {
  return *reinterpret_cast<const volatile std::uint64_t*>(address);
}

/// Whether the instruction before `address` is a call.
bool FollowsCall(std::uint64_t address) {
  const auto* code = reinterpret_cast<const volatile unsigned char*>(address);
  if (code[-5] == 0xe8) return true;
  // call *r/m: FF /2, with its ModRM byte 2, 3, 4, 6 or 7 bytes before the end.
  for (const int length : {2, 3, 4, 6, 7})
    if (code[-length] == 0xff && (code[-length + 1] & 0x38) == 0x10) return true;
  return false;
}

bool IsReturnAddress(std::uint64_t address) {
  return IsCode(address) && IsCode(address - 7) && FollowsCall(address);
}

/// Goes to the caller at which the walk goes on.
void Enter(Stack& stack, std::uint64_t pc, std::uint64_t sp, bool isGuess) {
  stack.last.value[WalkRegisters::kProgramCounter] = pc;
  stack.last.value[WalkRegisters::kStackPointer] = sp;
  stack.guesses += isGuess ? 1 : 0;
  stack.Add(pc, isGuess);
}

/// Where an instruction leads whose last four bytes, at `offset`, are the distance from the `next`.
std::uint64_t RelativeTo(std::uint64_t next, const volatile unsigned char* offset) {
  std::uint32_t distance = 0;
  for (int i = 3; i >= 0; --i) distance = distance << 8U | offset[i];
  return next + static_cast<std::uint64_t>(static_cast<std::int32_t>(distance));
}

std::uint64_t PointerAt(std::uint64_t slot) {
  return slot % kWord == 0 && IsReadable(slot) ? WordAt(slot) : 0;
}

/// Where a call to `target` leads: behind an entry of a procedure linkage table, jmp *slot(%rip)
/// with or without a prefix and behind an endbr64, it is what the slot holds.
std::uint64_t BehindLinkage(std::uint64_t target) {
  if (!IsCode(target) || !IsCode(target + 11)) return 0;
  const auto* code = reinterpret_cast<const volatile unsigned char*>(target);
  if (code[0] == 0xf3 && code[1] == 0x0f && code[2] == 0x1e && code[3] == 0xfa) code += 4;
  if (code[0] == 0xf2) ++code;
  if (code[0] != 0xff || code[1] != 0x25) return target;
  return PointerAt(RelativeTo(reinterpret_cast<std::uint64_t>(code) + 6, code + 2));
}

/// Whether the call before the return address `address` names the function that `pc` is in, or the
/// jump to it, as far as an instruction tells: not for a call by a register.
bool CallsFunctionOf(std::uint64_t pc, std::uint64_t address) {
  const auto* code = reinterpret_cast<const volatile unsigned char*>(address);
  const std::uint64_t named = RelativeTo(address, code - 4);
  const auto isIn = [pc](std::uint64_t start) {
    return start <= pc && pc - start < kLargeFunction;
  };
  if (code[-5] == 0xe8 && (isIn(named) || isIn(BehindLinkage(named)))) return true;
  return code[-6] == 0xff && code[-5] == 0x15 && isIn(PointerAt(named));
}

/// The first word in the `words` of the stack below `end` that is a return address, of a call of
/// the function that the walk is in where that is asked for. 0 when there is none.
std::uint64_t FindReturn(const Stack& stack, std::uint64_t end, std::size_t words, bool isOwnCall) {
  std::uint64_t at = (stack.last.StackPointer() + kWord - 1) / kWord * kWord;
  for (std::size_t i = 0; i < words && at < end; ++i, at += kWord) {
    if ((i == 0 || at % kPage == 0) && !IsReadable(at)) return 0;
    if (!IsReturnAddress(WordAt(at))) continue;
    if (!isOwnCall || CallsFunctionOf(stack.last.ProgramCounter(), WordAt(at))) return at;
  }
  return 0;
}

void EnterReturn(Stack& stack, std::uint64_t at) { Enter(stack, WordAt(at), at + kWord, true); }

/// The caller by the frame pointer, where that points into the stack at a return address. In a
/// function that keeps no frame pointer it is its caller's, or that one's caller's, and the call of
/// the function itself lies below: that is entered where it names the function. Where the thread
/// was interrupted, what may be the return from a small function is shown, and no more believed.
bool GuessByFramePointer(Stack& stack, bool isInterrupted) {
  const std::uint64_t frame = stack.last.FramePointer();
  const std::uint64_t sp = stack.last.StackPointer();
  if (frame % kWord != 0 || frame < sp || frame - sp > kLargestFrame || !IsReadable(frame) ||
      !IsReadable(frame + kWord))
    return false;
  const std::uint64_t address = WordAt(frame + kWord);
  if (!IsReturnAddress(address)) return false;
  if (!CallsFunctionOf(stack.last.ProgramCounter(), address)) {
    if (const std::uint64_t own = FindReturn(stack, frame, kScannedWords, true)) {
      EnterReturn(stack, own);
      return true;
    }
    const std::uint64_t near = isInterrupted ? FindReturn(stack, frame, kNearWords, false) : 0;
    if (near != 0) EnterReturn(stack, near);
  }
  stack.last.value[WalkRegisters::kFramePointer] = WordAt(frame);
  Enter(stack, address, frame + 2 * kWord, true);
  return true;
}

/// The next word of the stack that is a return address.
bool GuessByScan(Stack& stack) {
  const std::uint64_t at = FindReturn(stack, ~std::uint64_t{0}, kScannedWords, false);
  if (at != 0) EnterReturn(stack, at);
  return at != 0;
}

bool Guess(Stack& stack, bool isInterrupted) {
  return stack.guesses < kMaximumGuesses &&
         (GuessByFramePointer(stack, isInterrupted) || GuessByScan(stack));
}

/// From the signal trampoline to what the handler has interrupted. The unwinder would do the same,
/// but fault where that is no code, before the frame is seen.
bool LeaveHandler(Stack& stack) {
  if (!IsSignalTrampoline(stack.last.ProgramCounter())) return false;
  const auto* context = reinterpret_cast<const ucontext_t*>(stack.last.StackPointer());
  stack.last = WalkRegisters::From(context->uc_mcontext);
  stack.Add(stack.last.ProgramCounter());
  return true;
}

/// From a place that is not code to the return address on top of the stack, which the call that led
/// there has pushed.
bool LeaveWildCall(Stack& stack) {
  const std::uint64_t sp = stack.last.StackPointer();
  if (IsCode(stack.last.ProgramCounter()) || !IsReadable(sp) || !IsCode(WordAt(sp))) return false;
  Enter(stack, WordAt(sp), sp + kWord, false);
  return true;
}

/// Goes on from the last frame, whose program counter is `back` bytes behind what is running: a
/// return address may already belong to the next function.
void Unwind(Stack& stack, std::uint64_t back) {
  // The unwinder reads the code at the program counter (libgcc 12 i386/linux-unwind.h), which must
  // be there.
  if (stack.isUnwinderHeld || !IsCode(stack.last.ProgramCounter() - back)) return;
  WalkRegisters registers = stack.last;
  registers.value[WalkRegisters::kProgramCounter] -= back;
  Run run{stack};
  tarvoUnwindFrom(registers.value, AppendEntry, &run);
}

/// Goes on from a frame that is in `stack` already.
void GoOn(Stack& stack, bool isInterrupted) {
  for (;;) {
    const std::size_t before = stack.count;
    Unwind(stack, isInterrupted ? 0 : 1);
    if (stack.isAtEnd || stack.count == kMaximumFrames) return;
    const bool isStill = isInterrupted && stack.count == before;
    isInterrupted = LeaveHandler(stack);
    if (!isInterrupted && !LeaveWildCall(stack) && !Guess(stack, isStill)) return;
  }
}

}  // namespace

WalkRegisters WalkRegisters::From(const user_regs_struct& r) {
  return {{r.rax, r.rdx, r.rcx, r.rbx, r.rsi, r.rdi, r.rbp, r.rsp, r.r8, r.r9, r.r10, r.r11, r.r12,
           r.r13, r.r14, r.r15, r.rip}};
}

WalkRegisters WalkRegisters::From(const mcontext_t& context) {
  constexpr int kOrder[] = {REG_RAX, REG_RDX, REG_RCX, REG_RBX, REG_RSI, REG_RDI,
                            REG_RBP, REG_RSP, REG_R8,  REG_R9,  REG_R10, REG_R11,
                            REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
  WalkRegisters registers{};
  for (std::size_t i = 0; i < 17; ++i)
    registers.value[i] = static_cast<std::uint64_t>(context.gregs[kOrder[i]]);
  return registers;
}

void WalkStack(const WalkRegisters& registers, Stack& stack) {
  stack.last = registers;
  stack.Add(registers.ProgramCounter());
  GoOn(stack, true);
}

void ContinueWalk(Stack& stack) {
  const bool isInterrupted = stack.count == 1;
  if (!stack.isAtEnd && Guess(stack, isInterrupted)) GoOn(stack, false);
}

void WalkHandler(std::uint64_t end, Stack& stack) {
  struct Handlers {
    Stack& stack;
    std::uint64_t end;
    bool hasSkipped = false;
  } handlers{stack, end};
  _Unwind_Backtrace(
      [](_Unwind_Context* context, void* to) {
        auto& walk = *static_cast<Handlers*>(to);
        const std::uint64_t address = _Unwind_GetIP(context);
        if (!walk.hasSkipped) {
          walk.hasSkipped = true;
          return _URC_NO_REASON;
        }
        const bool isEnd = address == walk.end || walk.stack.count + 1 >= kMaximumFrames / 2;
        if (!isEnd) walk.stack.Add(address);
        return isEnd ? _URC_END_OF_STACK : _URC_NO_REASON;
      },
      &handlers);
  if (end != 0) stack.Add(end);
}

void WarmUnwinder() {
  Stack stack;
  WalkHandler(0, stack);
}

}  // namespace tarvo::crashhandler
