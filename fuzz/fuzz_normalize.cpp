// Normalizes any bytes as a crash report, and reads what comes of it, going on behind damage, as
// `tarvo resolve` does: no report keeps a line from the ones behind it, and what is spelled comes
// back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "crashlog/reading/report_reader.h"
#include "tarvo/report/normalize.h"
#include "toolkit/report/normalized_report.h"
#include "toolkit/report/spelling.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarvo;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (report::Unspelled(report::Spelled(text)) != text) std::abort();

  for (const auto adjustment :
       {report::ReturnAddressAdjustment::OwnReports, report::ReturnAddressAdjustment::AllReports}) {
    const report::NormalizedReport normalized = report::Normalize(text, adjustment);
    const auto added = std::ranges::count(normalized.text, '\n') - std::ranges::count(text, '\n');
    if (added != (normalized.addedLine != 0) && !report::IsOwnReport(text)) std::abort();
    auto tree = crashhandler::ParseReport(String(normalized.text), crashhandler::OnDamage::GoOn);
    if (tree) report::RestoreSpelled(*tree);
    // Damage or not, the first error that ends a reading is one here.
    const auto strict = crashhandler::ParseReport(String(normalized.text));
    if (strict && !tree) std::abort();
  }
  return 0;
}
