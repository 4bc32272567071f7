#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/host/attachments.h"
#include "tarvo/host/host.h"
#include "tarvo/host/tarvo.h"
#include "tarvo/host/thread_variables.h"

namespace {

/// Not destroyed as other objects are: this library's go behind those of the modules that were
/// loaded after it. The function that ends the program stops the host.
std::unique_ptr<tarvo::Host>& Started() {
  static auto* const started = new std::unique_ptr<tarvo::Host>;
  return *started;
}

std::string_view View(const char* text) { return text == nullptr ? std::string_view() : text; }

std::vector<std::string> List(const char* const* texts) {
  std::vector<std::string> list;
  for (; texts != nullptr && *texts != nullptr; ++texts) list.emplace_back(*texts);
  return list;
}

tarvo::HostOptions Options(const tarvo_options& given) {
  tarvo::HostOptions options{.arguments = List(given.arguments), .modules = List(given.modules)};
  if (options.modules.empty()) options.modules = {"crashhandler"};
  options.build = View(given.build);
  options.reportFallback = View(given.report_fallback);
  options.crashGuard.enabled = given.crash_guard != 0;
  const std::string report(View(given.report));
  if (options.crashGuard.enabled) {
    options.crashGuard.report = tarvo::String(report);
  } else if (!report.empty()) {
    // The weakest of the arguments: of several the last one counts.
    options.arguments.insert(options.arguments.begin(), "--g_crashReportUrl=" + report);
  }
  return options;
}

void Tell(std::string_view text, char* error, std::size_t size) {
  if (error == nullptr || size == 0) return;
  text = text.substr(0, size - 1);
  *std::ranges::copy(text, error).out = '\0';
}

int ErrorOf(const tarvo::Result<void>& result) {
  if (result) return 0;
  return result.GetError().ClassId() == tarvo::Error::kOutOfMemory ? ENOMEM : EINVAL;
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] int tarvo_start(const tarvo_options* options, char* error,
                                               size_t error_size) try {
  if (Started() != nullptr) {
    Tell("The host runs already.", error, error_size);
    return EALREADY;
  }
  tarvo_options given{};
  // An older program knows fewer of them.
  if (options != nullptr) std::memcpy(&given, options, std::min(options->size, sizeof(given)));
  auto host = tarvo::Host::Start(Options(given));
  if (!host) {
    Tell(host.GetError().Text().View(), error, error_size);
    return EINVAL;
  }
  static const int isAtExit = std::atexit(tarvo_stop);
  static_cast<void>(isAtExit);
  Started() = *std::move(host);
  return 0;
} catch (const std::exception& exception) {
  Tell(exception.what(), error, error_size);
  return ENOMEM;
}

[[gnu::visibility("default")]] void tarvo_stop(void) { Started().reset(); }

[[gnu::visibility("default")]] int tarvo_set_thread_variable(const char* name, const char* value) {
  return ErrorOf(tarvo::SetThreadVariable(View(name), View(value)));
}
[[gnu::visibility("default")]] void tarvo_remove_thread_variable(const char* name) {
  tarvo::RemoveThreadVariable(View(name));
}

[[gnu::visibility("default")]] int tarvo_attach_file(const char* path) {
  return ErrorOf(tarvo::AttachFile(View(path)));
}
[[gnu::visibility("default")]] int tarvo_attach_text(const char* name, const char* text) {
  return ErrorOf(tarvo::AttachText(View(name), View(text)));
}
[[gnu::visibility("default")]] void tarvo_remove_attachment(const char* name) {
  tarvo::RemoveAttachment(View(name));
}

}  // extern "C"
