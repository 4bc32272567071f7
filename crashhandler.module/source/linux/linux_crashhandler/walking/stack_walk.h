#pragma once

#include <sys/user.h>
#include <ucontext.h>

#include <cstddef>
#include <cstdint>

#include "linux/linux_crashhandler/base/fault_guard.h"

namespace tarvo::crashhandler {

/// The innermost frames are kept: with the interrupted instruction's double, 99 in the report.
inline constexpr std::size_t kMaximumFrames = 99;
/// In a stack with so many guesses no more are made. A guess may show two frames.
inline constexpr std::size_t kMaximumGuesses = 32;
/// Frames at which unwinding faults, and which one stack is walked past.
inline constexpr int kMaximumFaults = 8;

/// What the unwinder needs of a thread, in the order of DWARF's register numbers (System V ABI
/// AMD64 1.0, figure 3.36): rax rdx rcx rbx rsi rdi rbp rsp r8 … r15 rip.
struct WalkRegisters {
  std::uint64_t value[17] = {};

  static constexpr std::size_t kFramePointer = 6;
  static constexpr std::size_t kStackPointer = 7;
  static constexpr std::size_t kProgramCounter = 16;

  static WalkRegisters From(const user_regs_struct& registers);
  static WalkRegisters From(const mcontext_t& context);

  [[nodiscard]] std::uint64_t ProgramCounter() const { return value[kProgramCounter]; }
  [[nodiscard]] std::uint64_t StackPointer() const { return value[kStackPointer]; }
  [[nodiscard]] std::uint64_t FramePointer() const { return value[kFramePointer]; }
};

/// The code addresses of one stack, innermost first: the program counter, then return addresses.
struct Stack {
  std::uint64_t addresses[kMaximumFrames] = {};
  volatile std::size_t count = 0;
  /// Of these, which were guessed: bit i of word i / 64.
  std::uint64_t guessed[2] = {};
  std::size_t guesses = 0;
  /// The unwinder waits for a lock and is left alone: all further callers are guesses.
  volatile bool isUnwinderHeld = false;
  WalkRegisters last;  ///< where the walk is: of the last frame, as far as they are known
  volatile bool isAtEnd = false;  ///< that frame is the outermost function's

  void Add(std::uint64_t address, bool isGuess = false) {
    if (count == kMaximumFrames) return;
    addresses[count] = address;
    if (isGuess) guessed[count / 64] |= std::uint64_t{1} << count % 64;
    count = count + 1;
  }
  [[nodiscard]] bool IsGuess(std::size_t index) const {
    return (guessed[index / 64] >> index % 64 & 1) != 0;
  }
};

/// Appends the stack of a thread that stands still, from its registers, without its help: its
/// program counter, its callers by call-frame information, and where that ends by frame pointers or
/// by what looks like return addresses.
///
/// A program counter that is not in code, after a call through a wild pointer, is a frame too; its
/// caller is the return address on top of the stack. So it is where a handler was called on top of
/// such a call. Faults where the stack is damaged, with what was found until then in `stack`: run
/// by WalkGuarded. Calls nothing of the loader that takes a lock. Crashed process, signalled
/// thread.
void WalkStack(const WalkRegisters& registers, Stack& stack);

/// Goes on with a walk that has faulted, with a guess of the next caller. As WalkStack.
void ContinueWalk(Stack& stack);

/// Walks a stack, and past frames that cannot be unwound. `guarded` runs a step and tells whether
/// it has come to its end; what it says last is answered.
template <typename Guarded>
bool WalkGuarded(const WalkRegisters& registers, Stack& stack, const Guarded& guarded) {
  bool isWhole = guarded([&] { WalkStack(registers, stack); });
  for (int faults = 0; !isWhole && faults < kMaximumFaults; ++faults)
    isWhole = guarded([&] { ContinueWalk(stack); });
  return isWhole;
}

/// Appends the calling function's own callers, up to the one that returns to `end`, whose address
/// is appended last. Crashed process.
void WalkHandler(std::uint64_t end, Stack& stack);

/// Runs the unwinder once, so that what it sets up on first use (libgcc 12 unwind-dw2.c,
/// init_dwarf_reg_size_table) is there. Before a crash.
void WarmUnwinder();

}  // namespace tarvo::crashhandler
