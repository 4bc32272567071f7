#include "toolkit/resolve/outcome/address_texts.h"

#include "tarvo/crash_report.h"
#include "tarvo/format.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

/// Calls `change` with each dictionary of the array `key`.
template <typename Change>
void ChangeEach(DataDictionary& parent, std::string_view key, Change change) {
  DataValue* value = parent.FindMutable(key);
  auto* array = value == nullptr ? nullptr : value->As<DataArray>();
  for (std::size_t i = 0; array != nullptr && i < array->Size(); ++i)
    if (auto* element = array->Mutable(i).As<DataDictionary>()) change(*element);
}

}  // namespace

void AddAddressTexts(DataDictionary& crashLog) {
  ChangeEach(crashLog, property::kThreads, [](DataDictionary& thread) {
    ChangeEach(thread, property::kCallstack, [](DataDictionary& frame) {
      if (const auto* address = frame.FindAs<std::uint64_t>(property::kAddress))
        frame.Set(String(property::kAddressText), Format("0x@{x}", *address));
    });
  });
}

}  // namespace tarvo::toolkit
