#include "linux/linux_crashhandler/walking/stack_walk.h"

#include "linux/linux_crashhandler/facts/code_ranges.h"
#include "linux/linux_crashhandler/walking/unwind_from.h"

namespace tarvo::crashhandler {
namespace {

/// How far above the stack pointer a return address is looked for.
constexpr std::size_t kScannedWords = 512;
/// A frame is no larger, as far as frame pointers are believed.
constexpr std::uint64_t kLargestFrame = 1 << 20;

/// Where the unwinder is.
struct Place {
  std::uint64_t pc = 0;
  std::uint64_t sp = 0;
  std::uint64_t framePointer = 0;
};

struct Walk {
  Stack& stack;
  Place last{};
  bool isStub = true;   ///< the next entry is the function that starts the unwinder
  bool isFirst = true;  ///< the next entry is the frame that the walk starts at
};

_Unwind_Reason_Code AppendEntry(_Unwind_Context* context, void* to) {
  auto& walk = *static_cast<Walk*>(to);
  if (walk.isStub) {
    walk.isStub = false;
    return _URC_NO_REASON;
  }
  const Place place{_Unwind_GetIP(context), _Unwind_GetCFA(context),
                    _Unwind_GetGR(context, WalkRegisters::kFramePointer)};
  const Place before = walk.last;
  walk.last = place;
  if (walk.isFirst) {
    walk.isFirst = false;
    return _URC_NO_REASON;
  }
  // Above the outermost function the unwinder finds nothing. No progress: a damaged or hand-made
  // frame that is its own caller.
  if (place.pc == 0 || (place.pc == before.pc && place.sp == before.sp)) {
    walk.last.pc = 0;
    return _URC_END_OF_STACK;
  }
  walk.stack.Add(place.pc);
  return walk.stack.count == kMaximumFrames ? _URC_END_OF_STACK : _URC_NO_REASON;
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

/// The caller by the frame pointer, where that points into the stack at a return address.
bool GuessByFramePointer(Place& place) {
  const std::uint64_t frame = place.framePointer;
  if (frame % sizeof(std::uint64_t) != 0 || frame < place.sp || frame - place.sp > kLargestFrame)
    return false;
  const std::uint64_t address = WordAt(frame + 8);
  if (!IsReturnAddress(address)) return false;
  place = {address, frame + 16, WordAt(frame)};
  return true;
}

/// The next word of the stack that is a return address.
bool GuessByScan(Place& place) {
  std::uint64_t at = (place.sp + 7) / 8 * 8;
  for (std::size_t i = 0; i < kScannedWords; ++i, at += 8) {
    const std::uint64_t address = WordAt(at);
    if (!IsReturnAddress(address)) continue;
    place = {address, at + 8, place.framePointer};
    return true;
  }
  return false;
}

/// Goes on from a frame that is in `stack` already, by call-frame information as far as there is
/// some.
void Unwind(const WalkRegisters& registers, Walk& walk) {
  walk.isFirst = true;
  walk.isStub = true;
  tarvoUnwindFrom(registers.value, AppendEntry, &walk);
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

void WalkStack(const WalkRegisters& given, Stack& stack) {
  WalkRegisters registers = given;
  std::uint64_t& pc = registers.value[WalkRegisters::kProgramCounter];
  std::uint64_t& sp = registers.value[WalkRegisters::kStackPointer];
  std::uint64_t& framePointer = registers.value[WalkRegisters::kFramePointer];
  stack.Add(pc);
  Walk walk{.stack = stack, .last = {pc, sp, framePointer}};
  // The unwinder reads the code at the program counter, which must be there. After a call through a
  // wild pointer the caller is the return address that the call has pushed.
  const bool isWild = !IsCode(pc);
  if (isWild && IsCode(WordAt(sp))) {
    pc = WordAt(sp);
    sp += sizeof(std::uint64_t);
    stack.Add(pc);
  }
  if (IsCode(pc)) Unwind(registers, walk);
  for (std::size_t i = 0; i < kMaximumGuesses && stack.count < kMaximumFrames; ++i) {
    Place place = walk.last;
    if (place.pc == 0) return;  // the outermost function
    if (!GuessByFramePointer(place) && !GuessByScan(place)) return;
    pc = place.pc;
    sp = place.sp;
    framePointer = place.framePointer;
    stack.Add(pc, true);
    Unwind(registers, walk);
  }
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
