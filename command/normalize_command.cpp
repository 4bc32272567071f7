#include <cstdio>
#include <memory>
#include <string>

#include "command/adjustment_option.h"
#include "command/subcommand.h"
#include "tarvo/report/normalize.h"

namespace tarvo::command {
namespace {

constexpr const char* kNormalizeFooter =
    R"(Reports of tarvo's own capture name a frame's module, function and address in one
text. The printed report has them where other reports have them: module,
function with offset, program counter. Return addresses are adjusted: one byte
less, so that they lie in the call. `tarvo resolve` does the same on a copy before
it resolves; the report itself is never changed.

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
  const Result<String> text = host.Services().Files().ReadText(report);
  if (!text) return Fail(text.GetError());
  const std::string normalized = report::Normalized(text->View(), options.adjustment);
  std::fwrite(normalized.data(), 1, normalized.size(), stdout);
  return kDone;
}

}  // namespace

void AddNormalizeCommand(Program& program, Context& context) {
  Command normalize = program.AddSubcommand("normalize", "Print a report as it is resolved");
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
