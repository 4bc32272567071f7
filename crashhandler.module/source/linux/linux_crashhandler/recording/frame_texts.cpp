#include "linux/linux_crashhandler/recording/frame_texts.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/base/fault_guard.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/modules.h"
#include "linux/linux_crashhandler/recording/dynamic_symbols.h"

namespace tarvo::crashhandler {
namespace {

/// As it was at the start: a program may rewrite its title, and with it argv[0].
char g_programName[PATH_MAX] = "";

/// Threads that wait have the same frames, so texts are remembered by address. A slot that is taken
/// by another address is overwritten.
struct KnownText {
  std::uint64_t address = 0;
  const char* text = nullptr;
};
constexpr std::size_t kKnownTexts = 4096;
KnownText g_knownTexts[kKnownTexts];

/// The parts of one text, found by reading the module's tables.
struct FrameFacts {
  const char* file = "";
  DynamicSymbol symbol;
  std::uint64_t base = 0;
};

const ModuleImage* ImageOf(std::uint64_t address) {
  for (const ModuleImage& image : g_moduleImages)
    if (image.SegmentOf(address) != nullptr) return &image;
  return nullptr;
}

/// The size of the formatted text, with its end; writes it when there is a buffer. Reads the
/// module's texts, which may have gone.
int PrintText(char* buffer, std::size_t size, std::uint64_t address, const FrameFacts& facts) {
  const auto* pointer = reinterpret_cast<const void*>(address);
  if (facts.file[0] == '\0') return snprintf(buffer, size, "[%p]", pointer) + 1;
  const bool named = facts.symbol.name != nullptr;
  const std::uint64_t start = named ? facts.symbol.address : facts.base;
  if (!named && start == 0) return snprintf(buffer, size, "%s() [%p]", facts.file, pointer) + 1;
  const char sign = address >= start ? '+' : '-';
  const std::uint64_t offset = address >= start ? address - start : start - address;
  return snprintf(buffer, size, "%s(%s%c%#lx) [%p]", facts.file, named ? facts.symbol.name : "",
                  sign, offset, pointer) +
         1;
}

const char* MakeText(std::uint64_t address) {
  FrameFacts facts;
  if (const ModuleImage* image = ImageOf(address)) {
    facts.base = image->base;
    const bool isProgram = image == g_moduleImages.begin() && image->path[0] == '\0';
    facts.file = isProgram ? g_programName : image->path;
    facts.symbol = FindDynamicSymbol(*image, address);
  }
  const int size = PrintText(nullptr, 0, address, facts);
  auto* text = static_cast<char*>(CaptureAllocate(static_cast<std::size_t>(size)));
  if (text == nullptr) return nullptr;
  PrintText(text, static_cast<std::size_t>(size), address, facts);
  const char* slash = strrchr(text, '/');
  return slash == nullptr ? text : slash + 1;
}

const char* MakeBareText(std::uint64_t address) {
  constexpr std::size_t kSize = 24;
  auto* text = static_cast<char*>(CaptureAllocate(kSize));
  if (text != nullptr) snprintf(text, kSize, "[%p]", reinterpret_cast<const void*>(address));
  return text;
}

}  // namespace

void PrepareFrameTexts() {
  strncpy(g_programName, program_invocation_name, sizeof(g_programName) - 1);
}

const char* FrameText(std::uint64_t address) {
  KnownText& known = g_knownTexts[address / 2 % kKnownTexts];
  if (known.text != nullptr && known.address == address) return known.text;
  // Volatile: kept when the step is cut short. A module may be unloaded by a thread that goes on.
  const char* volatile text = nullptr;
  if (!RunGuarded(g_faultGuard, [&] { text = MakeText(address); })) text = MakeBareText(address);
  known = {address, text};
  return text;
}

void NameFrames() {
  for (std::size_t i = 0; i < g_crashInfo.threads.size; ++i) {
    const CaptureArray<StackFrame>& frames = g_crashInfo.threads.items[i].frames;
    for (std::size_t k = 0; k < frames.size; ++k)
      frames.items[k].moduleText = FrameText(frames.items[k].sp);
  }
}

}  // namespace tarvo::crashhandler
