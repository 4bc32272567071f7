// Reads any bytes as a crash report, and writes back what was read: one crash log or one error that
// says where it comes from, whatever the bytes are.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "crashlog/reading/report_reader.h"
#include "crashlog/writing/crash_log_writer.h"

namespace {

class NullFile final : public tarvo::Counted<tarvo::OutputFile> {
 public:
  tarvo::Result<void> Write(std::string_view bytes) override {
    if (!bytes.ends_with("\r\n")) std::abort();
    return {};
  }
  tarvo::Result<void> Commit() override { return {}; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarvo;
  // A buffer of its own, so that reading beyond its end is noticed.
  const String text(std::string_view(reinterpret_cast<const char*>(data), size));
  const Result<DataDictionary> report = crashhandler::ParseReport(text);
  if (!report) {
    if (report.GetError().Where().path != "crashhandler.module/source/crashlog") std::abort();
    return 0;
  }
  const Ref<NullFile> file = Make<NullFile>();
  if (!crashhandler::WriteCrashLog(*report, *file)) std::abort();
  return 0;
}
