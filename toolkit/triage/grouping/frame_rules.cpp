#include "toolkit/triage/grouping/frame_rules.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace tarvo::toolkit {
namespace {

enum class Match : std::uint8_t {
  Exact,
  Start,
  Stem,  ///< a C function under the names of its variants: "__memcpy_avx_unaligned_erms"
};

struct NameRule {
  Match match;
  std::string_view text;
  std::string_view reason;
};

constexpr std::string_view kEnds = "ends the process by a signal";
constexpr std::string_view kAssertion = "reports a failed assertion";
constexpr std::string_view kThrows = "throws what the caller made";
constexpr std::string_view kUncaught = "is called as nobody catches";
constexpr std::string_view kChecks = "found broken memory or arguments and gives up";

constexpr std::array kRaising = {
    NameRule{Match::Exact, "abort", kEnds},
    NameRule{Match::Exact, "__GI_abort", kEnds},
    NameRule{Match::Exact, "raise", kEnds},
    NameRule{Match::Exact, "__GI_raise", kEnds},
    NameRule{Match::Exact, "gsignal", kEnds},
    NameRule{Match::Exact, "kill", kEnds},
    NameRule{Match::Exact, "tgkill", kEnds},
    NameRule{Match::Exact, "__pthread_kill", kEnds},
    NameRule{Match::Exact, "pthread_kill", kEnds},
    NameRule{Match::Start, "__pthread_kill_", kEnds},
    NameRule{Match::Exact, "__abort", kEnds},
    NameRule{Match::Exact, "_abort", kEnds},
    NameRule{Match::Exact, "std::abort", kEnds},
    NameRule{Match::Exact, "RaiseException", kEnds},
    NameRule{Match::Exact, "RtlRaiseException", kEnds},
    NameRule{Match::Exact, "KiUserExceptionDispatch", kEnds},
    NameRule{Match::Exact, "KiUserExceptionDispatcher", kEnds},
    NameRule{Match::Exact, "UnhandledExceptionFilter", kEnds},
    NameRule{Match::Exact, "RtlFailFast2", kEnds},
    NameRule{Match::Exact, "DebugBreak", kEnds},
    NameRule{Match::Start, "core::panicking::", kEnds},
    NameRule{Match::Start, "std::panicking::", kEnds},
    NameRule{Match::Exact, "rust_panic", kEnds},
    NameRule{Match::Start, "__assert", kAssertion},
    NameRule{Match::Exact, "__GI___assert_fail", kAssertion},
    NameRule{Match::Exact, "_assert", kAssertion},
    NameRule{Match::Exact, "_wassert", kAssertion},
    NameRule{Match::Exact, "_CrtDbgReport", kAssertion},
    NameRule{Match::Exact, "_CrtDbgReportW", kAssertion},
    NameRule{Match::Exact, "std::__glibcxx_assert_fail", kAssertion},
    NameRule{Match::Exact, "std::__replacement_assert", kAssertion},
    NameRule{Match::Exact, "std::__libcpp_verbose_abort", kAssertion},
    NameRule{Match::Exact, "QMessageLogger::fatal", kAssertion},
    NameRule{Match::Start, "qt_assert", kAssertion},
    NameRule{Match::Start, "g_assertion_message", kAssertion},
    NameRule{Match::Exact, "__cxa_throw", kThrows},
    NameRule{Match::Exact, "__cxa_rethrow", kThrows},
    NameRule{Match::Exact, "__cxa_bad_cast", kThrows},
    NameRule{Match::Exact, "__cxa_bad_typeid", kThrows},
    NameRule{Match::Exact, "__cxa_throw_bad_array_new_length", kThrows},
    NameRule{Match::Exact, "__cxa_pure_virtual",
             "was called in place of a function without a body"},
    NameRule{Match::Exact, "_purecall", "was called in place of a function without a body"},
    NameRule{Match::Exact, "_CxxThrowException", kThrows},
    NameRule{Match::Exact, "__CxxThrowException", kThrows},
    NameRule{Match::Exact, "objc_exception_throw", kThrows},
    NameRule{Match::Exact, "std::rethrow_exception", kThrows},
    NameRule{Match::Start, "std::__throw_", kThrows},
    NameRule{Match::Start, "std::_Xlength_error", kThrows},
    NameRule{Match::Start, "std::_Xout_of_range", kThrows},
    NameRule{Match::Start, "std::_Throw_", kThrows},
    NameRule{Match::Exact, "_Unwind_RaiseException", kThrows},
    NameRule{Match::Exact, "_Unwind_Resume_or_Rethrow", kThrows},
    NameRule{Match::Exact, "std::terminate", kUncaught},
    NameRule{Match::Exact, "__clang_call_terminate", kUncaught},
    NameRule{Match::Exact, "__cxa_call_terminate", kUncaught},
    NameRule{Match::Exact, "__cxa_call_unexpected", kUncaught},
    NameRule{Match::Exact, "std::unexpected", kUncaught},
    NameRule{Match::Exact, "std::__terminate", kUncaught},
    NameRule{Match::Exact, "__cxxabiv1::__terminate", kUncaught},
    NameRule{Match::Exact, "__gxx_personality_v0", kUncaught},
    NameRule{Match::Exact, "__gnu_cxx::__verbose_terminate_handler", kUncaught},
    NameRule{Match::Exact, "terminate", kUncaught},
    NameRule{Match::Exact, "__stack_chk_fail", kChecks},
    NameRule{Match::Exact, "__stack_chk_fail_local", kChecks},
    NameRule{Match::Exact, "__fortify_fail", kChecks},
    NameRule{Match::Exact, "__GI___fortify_fail", kChecks},
    NameRule{Match::Exact, "__chk_fail", kChecks},
    NameRule{Match::Exact, "__GI___chk_fail", kChecks},
    NameRule{Match::Exact, "__libc_message", kChecks},
    NameRule{Match::Exact, "__libc_message_impl", kChecks},
    NameRule{Match::Exact, "__libc_fatal", kChecks},
    NameRule{Match::Exact, "malloc_printerr", kChecks},
    NameRule{Match::Exact, "__report_gsfailure", kChecks},
    NameRule{Match::Exact, "_invalid_parameter", kChecks},
    NameRule{Match::Exact, "_invalid_parameter_noinfo", kChecks},
    NameRule{Match::Exact, "_invoke_watson", kChecks},
    NameRule{Match::Exact, "__fastfail", kChecks},
    NameRule{Match::Exact, "malloc_error_break", kChecks},
    NameRule{Match::Exact, "RtlReportCriticalFailure", kChecks},
    NameRule{Match::Start, "RtlpReportHeapFailure", kChecks},
    NameRule{Match::Start, "__asan_", kChecks},
    NameRule{Match::Start, "__ubsan_", kChecks},
    NameRule{Match::Start, "__sanitizer", kChecks},
};

constexpr std::string_view kLibrary = "the standard library's";
constexpr std::string_view kAllocation = "breaks where others have broken the heap";
constexpr std::string_view kMemory = "works on memory that the caller names";

constexpr std::array kGlue = {
    NameRule{Match::Start, "std::", kLibrary},
    NameRule{Match::Start, "__gnu_cxx::", kLibrary},
    NameRule{Match::Start, "__cxxabiv1::", kLibrary},
    NameRule{Match::Start, "__cxa_", kLibrary},
    NameRule{Match::Start, "_Unwind_", kLibrary},
    NameRule{Match::Start, "__gthread_", kLibrary},
    NameRule{Match::Start, "__restore_rt", "returns from a signal's handler"},
    NameRule{Match::Exact, "_sigtramp", "returns from a signal's handler"},
    NameRule{Match::Exact, "operator new", kAllocation},
    NameRule{Match::Exact, "operator new[]", kAllocation},
    NameRule{Match::Exact, "operator delete", kAllocation},
    NameRule{Match::Exact, "operator delete[]", kAllocation},
    NameRule{Match::Stem, "malloc", kAllocation},
    NameRule{Match::Stem, "calloc", kAllocation},
    NameRule{Match::Stem, "realloc", kAllocation},
    NameRule{Match::Stem, "free", kAllocation},
    NameRule{Match::Exact, "cfree", kAllocation},
    NameRule{Match::Exact, "posix_memalign", kAllocation},
    NameRule{Match::Exact, "aligned_alloc", kAllocation},
    NameRule{Match::Start, "_int_", kAllocation},
    NameRule{Match::Start, "__libc_malloc", kAllocation},
    NameRule{Match::Start, "__libc_free", kAllocation},
    NameRule{Match::Start, "__libc_calloc", kAllocation},
    NameRule{Match::Start, "__libc_realloc", kAllocation},
    NameRule{Match::Exact, "unlink_chunk", kAllocation},
    NameRule{Match::Exact, "malloc_consolidate", kAllocation},
    NameRule{Match::Exact, "sysmalloc", kAllocation},
    NameRule{Match::Exact, "tcache_get", kAllocation},
    NameRule{Match::Exact, "tcache_put", kAllocation},
    NameRule{Match::Start, "RtlAllocateHeap", kAllocation},
    NameRule{Match::Start, "RtlFreeHeap", kAllocation},
    NameRule{Match::Start, "RtlpAllocateHeap", kAllocation},
    NameRule{Match::Start, "RtlpFreeHeap", kAllocation},
    NameRule{Match::Start, "_malloc_base", kAllocation},
    NameRule{Match::Start, "_free_base", kAllocation},
    NameRule{Match::Stem, "memcpy", kMemory},
    NameRule{Match::Stem, "memmove", kMemory},
    NameRule{Match::Stem, "mempcpy", kMemory},
    NameRule{Match::Stem, "memset", kMemory},
    NameRule{Match::Stem, "memcmp", kMemory},
    NameRule{Match::Stem, "bcmp", kMemory},
    NameRule{Match::Stem, "memchr", kMemory},
    NameRule{Match::Stem, "memrchr", kMemory},
    NameRule{Match::Stem, "bzero", kMemory},
    NameRule{Match::Stem, "strlen", kMemory},
    NameRule{Match::Stem, "strnlen", kMemory},
    NameRule{Match::Stem, "strcpy", kMemory},
    NameRule{Match::Stem, "strncpy", kMemory},
    NameRule{Match::Stem, "stpcpy", kMemory},
    NameRule{Match::Stem, "strcat", kMemory},
    NameRule{Match::Stem, "strncat", kMemory},
    NameRule{Match::Stem, "strcmp", kMemory},
    NameRule{Match::Stem, "strncmp", kMemory},
    NameRule{Match::Stem, "strcasecmp", kMemory},
    NameRule{Match::Stem, "strchr", kMemory},
    NameRule{Match::Stem, "strrchr", kMemory},
    NameRule{Match::Stem, "strstr", kMemory},
    NameRule{Match::Stem, "strdup", kMemory},
    NameRule{Match::Stem, "wcslen", kMemory},
    NameRule{Match::Stem, "wcscpy", kMemory},
    NameRule{Match::Stem, "wmemset", kMemory},
    NameRule{Match::Start, "_platform_mem", kMemory},
    NameRule{Match::Start, "_platform_str", kMemory},
    NameRule{Match::Exact, "objc_msgSend", "calls what the caller names"},
    NameRule{Match::Start, "___ZN", "a name that nobody could read"},
};

/// Libraries that are on every machine: what crashes there was called with wrong arguments. Their
/// symbols differ from machine to machine, or are not there.
constexpr std::array<std::string_view, 30> kSystemModules = {
    "libc.so",   "libc-2.",     "ld-linux",       "libpthread",     "libm.so",    "libstdc++",
    "libgcc_s",  "libc++",      "libunwind",      "linux-vdso",     "linux-gate", "libdl.so",
    "librt.so",  "ntdll.dll",   "kernel32.dll",   "kernelbase.dll", "ucrtbase",   "msvcrt.dll",
    "vcruntime", "msvcp",       "wow64",          "libsystem_",     "dyld",       "libdyld",
    "libobjc",   "libSystem.B", "corefoundation", "user32.dll",     "win32u.dll", "win32kfull"};

/// Where the standard libraries' headers are: g++ gives functions of templates without the
/// namespace where an argument is private to a file.
constexpr std::array<std::string_view, 6> kLibraryFolders = {
    "/include/c++/",       "/include/x86_64-linux-gnu/c++/",
    "\\VC\\Tools\\MSVC\\", "/libstdc++-v3/include",
    "/usr/lib/gcc/",       "/libcxx/include/"};

constexpr std::array<std::string_view, 4> kHandlerModules = {"crashhandler.so", "libtarvo.so",
                                                             "libtarvo-exec", "tarvo_exec.so"};

constexpr std::array<std::string_view, 8> kProgramStarts = {
    "main",  "wmain",       "WinMain",           "wWinMain",
    "_main", "invoke_main", "NSApplicationMain", "UIApplicationMain"};

constexpr std::array<std::string_view, 26> kBelowProgram = {
    "_start",
    "start",
    "__libc_start_main",
    "__libc_start_call_main",
    "__libc_start_main_impl",
    "start_thread",
    "clone",
    "__clone",
    "clone3",
    "__clone3",
    "__GI___clone",
    "execute_native_thread_routine",
    "_pthread_start",
    "thread_start",
    "_pthread_body",
    "BaseThreadInitThunk",
    "RtlUserThreadStart",
    "__scrt_common_main_seh",
    "__scrt_common_main",
    "mainCRTStartup",
    "WinMainCRTStartup",
    "wmainCRTStartup",
    "thread_start<unsigned int (__cdecl*)(void *),1>",
    "_beginthreadex",
    "_threadstartex",
    "wWinMainCRTStartup"};

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return std::ranges::equal(a, b, {}, lower, lower);
}

/// "__memcpy_avx_unaligned_erms", "__GI_strlen", "memset": of `stem`.
bool IsVariantOf(std::string_view name, std::string_view stem) {
  if (name.starts_with("__GI_")) name.remove_prefix(5);
  name.remove_prefix(std::min(name.find_first_not_of('_'), name.size()));
  return name == stem || (name.starts_with(stem) && name[stem.size()] == '_');
}

bool Matches(const NameRule& rule, std::string_view name) {
  switch (rule.match) {
    case Match::Exact:
      return name == rule.text;
    case Match::Start:
      return name.starts_with(rule.text);
    case Match::Stem:
      return IsVariantOf(name, rule.text);
  }
  return false;
}

bool MatchesAny(std::span<const NameRule> rules, const StackEntry& entry) {
  return entry.isNamed &&
         std::ranges::any_of(rules, [&](const NameRule& rule) { return Matches(rule, entry.key); });
}

bool IsOfModule(const StackEntry& entry, std::span<const std::string_view> modules) {
  return std::ranges::any_of(modules, [&](std::string_view start) {
    return EqualsIgnoringCase(std::string_view(entry.module).substr(0, start.size()), start);
  });
}

}  // namespace

bool IsRaising(const StackEntry& entry) { return MatchesAny(kRaising, entry); }

bool IsGlue(const StackEntry& entry) {
  return MatchesAny(kGlue, entry) || IsOfModule(entry, kSystemModules) ||
         std::ranges::any_of(kLibraryFolders, [&](std::string_view folder) {
           return entry.sourceFile.find(folder) != std::string::npos;
         });
}

bool IsOfCrashHandler(const StackEntry& entry) { return IsOfModule(entry, kHandlerModules); }

bool IsProgramStart(const StackEntry& entry) {
  return entry.isNamed && std::ranges::find(kProgramStarts, entry.key) != kProgramStarts.end();
}

bool IsBelowProgram(const StackEntry& entry) {
  return entry.isNamed && std::ranges::find(kBelowProgram, entry.key) != kBelowProgram.end();
}

}  // namespace tarvo::toolkit
