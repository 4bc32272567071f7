// The frame texts of the crash path against the C library's own, for addresses all over the loaded
// objects.

#include "linux/linux_crashhandler/recording/frame_texts.h"

#include <execinfo.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/facts/modules.h"

namespace tarvo::crashhandler {
namespace {

std::string FromCLibrary(std::uint64_t address) {
  void* entry = reinterpret_cast<void*>(address);
  char** texts = backtrace_symbols(&entry, 1);
  const char* slash = std::strrchr(texts[0], '/');
  const std::string text = slash == nullptr ? texts[0] : slash + 1;
  std::free(texts);
  return text;
}

/// Addresses spread over all segments of all objects, each object's borders, and some that no
/// object holds.
std::vector<std::uint64_t> Addresses() {
  std::vector<std::uint64_t> addresses = {0, 1, 0x1000, 0x7fff'ffff'f000, ~std::uint64_t{0}};
  const auto collect = [](dl_phdr_info* info, std::size_t, void* to) {
    auto& list = *static_cast<std::vector<std::uint64_t>*>(to);
    for (std::size_t i = 0; i < info->dlpi_phnum; ++i) {
      const ElfW(Phdr)& header = info->dlpi_phdr[i];
      if (header.p_type != PT_LOAD) continue;
      const std::uint64_t start = info->dlpi_addr + header.p_vaddr;
      const std::uint64_t step = header.p_memsz / 400 + 1;
      for (std::uint64_t at = 0; at < header.p_memsz; at += step) list.push_back(start + at);
      list.push_back(start + header.p_memsz - 1);
    }
    return 0;
  };
  dl_iterate_phdr(collect, &addresses);
  return addresses;
}

TEST(FrameTexts, EqualTheCLibrarysToTheLetter) {
  PrepareCaptureMemory();
  PrepareFrameTexts();
  ListModules();
  const std::vector<std::uint64_t> addresses = Addresses();
  ASSERT_GT(addresses.size(), 2000U);
  std::size_t named = 0;
  for (const std::uint64_t address : addresses) {
    const std::string expected = FromCLibrary(address);
    ASSERT_EQ(FrameText(address), expected);
    named += expected.find("+0x") != std::string::npos && expected.find("(+") == std::string::npos;
  }
  // Otherwise the comparison would be of bare addresses only.
  EXPECT_GT(named, 200U);
}

// The rule of growth, which the memory use of a capture follows.
TEST(CaptureMemory, CapacitiesGrowByHalfInSteps) {
  std::vector<std::size_t> capacities;
  for (std::size_t capacity = 0; capacity < 400;) {
    capacity = NextCapacity(capacity);
    capacities.push_back(capacity);
  }
  EXPECT_EQ(capacities, (std::vector<std::size_t>{16, 32, 64, 112, 176, 272, 416}));
}

// Beyond the reserve the C library is asked; nothing is lost on the way.
TEST(CaptureMemory, GoesOnBehindTheReserve) {
#ifdef TARVO_SANITIZED
  GTEST_SKIP() << "what the capture takes it never gives back, which the leak sanitizer reports";
#endif
  PrepareCaptureMemory();
  CaptureArray<RegisterValue> array;
  const std::size_t count = 2 * kCaptureReserve / sizeof(RegisterValue);
  for (std::size_t i = 0; i < count; ++i) {
    RegisterValue* value = Append(array);
    ASSERT_NE(value, nullptr);
    ASSERT_EQ(value->value[0], 0U);
    value->value[0] = i;
  }
  for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(array.items[i].value[0], i);
}

}  // namespace
}  // namespace tarvo::crashhandler
