#include <cstdio>
#include <memory>
#include <string>

#include "command/adjustment_option.h"
#include "command/subcommand.h"
#include "tarvo/report/normalize.h"
#include "toolkit/report/report_text.h"

namespace tarvo::command {
namespace {

constexpr const char* kNormalizeFooter =
    R"(Reports of tarvo's own capture name a frame's module, function and address in one
text. The printed report has them where other reports have them: module,
function with offset, program counter. Return addresses are adjusted: one byte
less, so that they lie in the call. `tarvo resolve` does the same on a copy before
it resolves; the report itself is never changed.

A name that no line could carry is spelled: ".prog" is "Spelled__2eprog".

REPORT may be packed by gzip or xz, and be UTF-16. Of a damaged report every line
is printed, as it is where it is not understood.

REPORT may be a pipe (/dev/stdin): it is read to its end, and waited for, up to
1 GB.

The shared options and the exit statuses are those of `tarvo --help`.

Example:
  tarvo normalize demo_bugreport.txt | less
)";

struct NormalizeOptions {
  std::string report;
  report::ReturnAddressAdjustment adjustment = report::ReturnAddressAdjustment::OwnReports;
};

int PrintNormalized(Host& host, const NormalizeOptions& options) {
  const Url report = Url::FromSystemPath(options.report);
  const Result<report::ReportText> read = report::ReadWholeText(host.Services(), report);
  if (!read) return Fail(read.GetError());
  const std::string normalized = report::Normalized(read->text, options.adjustment);
  std::fwrite(normalized.data(), 1, normalized.size(), stdout);
  return kDone;
}

}  // namespace

void FillNormalizeCommand(Command& normalize, Context& context) {
  normalize.SetFooter(kNormalizeFooter);
  auto options = std::make_shared<NormalizeOptions>();
  normalize.AddOption("REPORT", options->report, "The crash report").Required();
  AddAdjustmentOptions(normalize, options->adjustment);
  normalize.OnNamed([&context, options] {
    context.action = [&context, options] {
      return WithHost(context, [options](Host& host) { return PrintNormalized(host, *options); });
    };
  });
}

}  // namespace tarvo::command
