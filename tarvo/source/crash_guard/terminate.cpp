#include "crash_guard/terminate.h"

#include <cxxabi.h>

#include <cstdlib>
#include <exception>
#include <typeinfo>

#include "tarvo/crash_report.h"
#include "tarvo/host/thread_variables.h"

namespace tarvo {
namespace {

constinit std::terminate_handler g_earlier = nullptr;

void RecordType(const std::type_info& type) {
  int status = 0;
  char* readable = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  (void)SetThreadVariable(crash_report::variable::kExceptionType,
                          readable == nullptr ? type.name() : readable);
  std::free(readable);
}

void RecordMessage() {
  try {
    throw;
  } catch (const std::exception& exception) {
    (void)SetThreadVariable(crash_report::variable::kExceptionMessage, exception.what());
  } catch (...) {  // it has no message
  }
}

[[noreturn]] void RecordAndGoOn() {
  if (const std::type_info* type = abi::__cxa_current_exception_type(); type != nullptr) {
    RecordType(*type);
    RecordMessage();
  }
  if (g_earlier != nullptr) g_earlier();
  std::abort();
}

}  // namespace

void RecordUncaughtExceptions() { g_earlier = std::set_terminate(RecordAndGoOn); }

void StopRecordingUncaughtExceptions() {
  if (std::get_terminate() == RecordAndGoOn) std::set_terminate(g_earlier);
}

}  // namespace tarvo
