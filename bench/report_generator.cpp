#include "report_generator.h"

#include <array>
#include <cstdint>
#include <random>
#include <string_view>

#include "tarvo/format.h"

namespace tarvo::bench {
namespace {

constexpr std::array<std::string_view, 43> kRegisters = {
    "rax",    "rbx", "rcx", "rdx",     "rdi",     "orig_rax", "rsi",   "rbp",       "rsp",
    "r8",     "r9",  "r10", "r11",     "r12",     "r13",      "r14",   "r15",       "rip",
    "eflags", "cs",  "ss",  "fs_base", "gs_base", "ds",       "es",    "fs",        "gs",
    "cwd",    "swd", "ftw", "fop",     "rip",     "rdp",      "mxcsr", "mxcr_mask", "st0",
    "st1",    "st2", "st3", "st4",     "st5",     "st6",      "st7"};

constexpr std::array<std::string_view, 8> kFunctions = {
    "main",
    "__libc_start_main",
    "_ZN5Scene6UpdateERKNS_7ContextE",
    "pthread_cond_wait",
    "_ZNSt6thread11_State_implINS_8_InvokerISt5tupleIJPFvvEEEEEE6_M_runEv",
    "?",
    "_ZN8Renderer4DrawERK4Meshi",
    "clone"};

constexpr std::size_t kFramesPerThread = 24;
constexpr std::size_t kFewestModules = 40;
constexpr std::size_t kThreadsPerModule = 4;

class Generator {
 public:
  std::string Generate(std::size_t bytes) {
    text_ = "TARVO_Crash_Report\n{\n\tCall_Stacks\n\t{\n";
    std::size_t threads = 0;
    while (text_.size() + ModuleCount(threads) * kModuleBytes < bytes) AddThread(++threads);
    text_ += "\t}\n\tLoaded_Modules\n\t{\n";
    for (std::size_t i = 0; i < ModuleCount(threads); ++i) AddModule(i);
    text_ +=
        "\t}\n\tException\n\t{\n\t\tExceptionNumber = 0x0000000B\n\t\tExceptionText = \"SIGSEGV\"\n"
        "\t\tAddress = 0x10\n\t\tThread = 0x7f40c0f2b740\n\t}\n}\n";
    return std::move(text_);
  }

 private:
  static constexpr std::size_t kModuleBytes = 170;

  static std::size_t ModuleCount(std::size_t threads) {
    return kFewestModules + threads / kThreadsPerModule;
  }

  template <typename... Arguments>
  void Add(std::string_view pattern, const Arguments&... arguments) {
    text_ += Format(pattern, arguments...).View();
  }

  std::uint64_t Address() { return 0x7f0000000000 + random_() % 0xffffffffff; }

  void AddFrame(std::size_t modules) {
    Add("\t\t\tlibmodule_@.so.6:\t@ + 0x@{x} (SP: 0x@{x}, PC: 0x@{x})\n", random_() % modules,
        kFunctions[random_() % kFunctions.size()], random_() % 4096, Address(), Address());
  }

  void AddRegister(std::size_t index) {
    if (index % 4 == 0) text_ += "\t\t\t\t";
    // Sixteen digits: most registers hold full addresses, the others leading zeros.
    const std::string digits =
        Format("@{x}", index % 3 == 0 ? random_() : random_() % 0x10000).ToStdString();
    text_ += kRegisters[index];
    text_ += ": 0x" + std::string(16 - digits.size(), '0') + digits;
    text_ += index % 4 == 3 ? '\n' : ' ';
  }

  void AddThread(std::size_t number) {
    Add("\t\tCall_Stack_Thread_@\n\t\t{\n", 4700 + number);
    for (std::size_t i = 0; i < kFramesPerThread; ++i) AddFrame(ModuleCount(0));
    text_ += "\t\t\tRegisters\n\t\t\t{\n";
    for (std::size_t i = 0; i < kRegisters.size(); ++i) AddRegister(i);
    Add("\t\t\t}\n\t\t\tVariables\n\t\t\t{\n\t\t\t\tThreadName = worker-@\n", number);
    Add("\t\t\t\tTask = Rendering of frame @\n\t\t\t\tScene = /home/ann/scenes/house @.scn\n\n",
        random_() % 1000, random_() % 100);
    text_ += "\t\t\t}\n\t\t}\n";
  }

  void AddModule(std::size_t number) {
    Add("\t\tModuleName = libmodule_@.so.6\n\t\t{\n"
        "\t\t\tExecutable = /usr/lib/x86_64-linux-gnu/libmodule_@.so.6\n"
        "\t\t\tBaseAddress = 0x@{x}\n\t\t\tBaseSize = @\n\t\t\tBuild = R15.6-@\n\t\t}\n",
        number, number, Address() & ~std::uint64_t{0xfff}, random_() % 10000000, number);
  }

  std::string text_;
  std::mt19937_64 random_{1};
};

}  // namespace

std::string GenerateReport(std::size_t bytes) { return Generator().Generate(bytes); }

}  // namespace tarvo::bench
