#include "services/data_formats.h"

#include "files/output_file.h"
#include "json/json_writer.h"

namespace tarvo {

Result<void> DataFormats::WriteJson(const DataDictionary& tree, const Url& file) {
  Result<Ref<OutputFile>> output = CreateOutputFile(file);
  if (!output) return output.GetError();
  auto written =
      tarvo::WriteJson(tree, [&](std::string_view bytes) { return (*output)->Write(bytes); });
  return written ? (*output)->Commit() : written;
}

}  // namespace tarvo
