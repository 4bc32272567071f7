#include "toolkit/resolve/outcome/address_texts.h"

#include <charconv>
#include <cstddef>
#include <cstdint>

#include "tarvo/crash_report.h"

namespace tarvo::toolkit {
namespace {

namespace property = crash_report::property;

constexpr String kAddressTextsKey = String::Literal(property::kAddressText);

/// Texts of addresses as slices of one buffer: they are made for every frame.
class TextPool {
 public:
  explicit TextPool(std::size_t texts)
      : bytes_(String::Build(texts * kMostBytes, [&](char* to) {
          next_ = to;
          return texts * kMostBytes;
        })) {}

  /// To be called as often as there are texts.
  String Of(std::uint64_t address) {
    char* const start = next_;
    *next_++ = '0';
    *next_++ = 'x';
    next_ = std::to_chars(next_, next_ + kMostDigits, address, 16).ptr;
    return bytes_.Slice(static_cast<std::size_t>(start - bytes_.View().data()),
                        static_cast<std::size_t>(next_ - start));
  }

 private:
  static constexpr std::size_t kMostDigits = 16;
  static constexpr std::size_t kMostBytes = 2 + kMostDigits;

  char* next_ = nullptr;  ///< where the next text goes; set while bytes_ is made
  String bytes_;
};

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
    const auto* frames = thread.FindAs<DataArray>(property::kCallstack);
    TextPool texts(frames == nullptr ? 0 : frames->Size());
    ChangeEach(thread, property::kCallstack, [&](DataDictionary& frame) {
      if (const auto* address = frame.FindAs<std::uint64_t>(property::kAddress))
        frame.Set(kAddressTextsKey, texts.Of(*address));
    });
  });
}

}  // namespace tarvo::toolkit
