#include "crashlog/resolving/resolve_messages.h"

#include <mutex>

#include "connection.h"
#include "crashlog/base/configuration.h"
#include "crashlog/base/property_names.h"
#include "crashlog/base/source.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

/// The text of the last error that was written, for the whole process.
struct LastError {
  SpinLock lock{g_CpuYieldDelegate};
  String text;
};

/// Made on first use and never destroyed: a resolve may still run when the process ends.
LastError& TheLastError() {
  static auto* const last = new LastError;
  return *last;
}

void WriteLine(std::string_view line) { g_tarvo.framework->Output().Console(kSource.Here(), line); }

std::string_view TextOf(const DataDictionary& dictionary, std::string_view key) {
  const auto* text = dictionary.FindAs<String>(key);
  return text == nullptr ? std::string_view() : text->View();
}

}  // namespace

void ShowThread(const DataDictionary& thread) {
  if (!ShowsDiagnostics(ResolveDiagnostics::All)) return;
  const auto* properties = thread.FindAs<DataDictionary>(property::kProperties);
  const std::string_view name =
      properties == nullptr ? std::string_view() : TextOf(*properties, property::kThreadName);
  WriteLine(Format("ThreadName: @", name));
}

void ShowResolvedFrame(const DataDictionary& frame) {
  if (!ShowsDiagnostics(ResolveDiagnostics::All)) return;
  const auto* line = frame.FindAs<std::int64_t>(property::kSourceLine);
  WriteLine(Format("@ in @  line @", TextOf(frame, property::kFunctionName),
                   TextOf(frame, property::kSourceFileName), line == nullptr ? 0 : *line));
}

void ShowSymbolFileError(const Error& error) {
  if (!ShowsDiagnostics(ResolveDiagnostics::Errors)) return;
  String text = error.Text();
  LastError& last = TheLastError();
  const std::scoped_lock lock(last.lock);
  if (text == last.text) return;
  WriteLine(text);
  last.text = std::move(text);
}

void ShowUnresolvedFrame(const DataDictionary& frame) {
  if (!ShowsDiagnostics(ResolveDiagnostics::Errors)) return;
  const auto* address = frame.FindAs<std::uint64_t>(property::kAddress);
  const String hexadecimal = Format("@{x}", address == nullptr ? 0 : *address);
  const std::string_view function = TextOf(frame, property::kFunctionName);
  if (!function.empty()) return WriteLine(Format("@ (0x@)", function, hexadecimal));
  WriteLine(Format("@ (@)", TextOf(frame, property::kModuleName), Format("0x@", hexadecimal)));
}

}  // namespace tarvo::crashhandler
