#include "toolkit/base/json_reader.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace tarvo::toolkit {
namespace {

/// Takes the parser's events, of which one that returns false ends the parsing.
class TreeBuilder {
 public:
  // The parser knows these names.
  // NOLINTBEGIN(readability-identifier-naming)
  bool Null() { return Take(DataValue()); }
  bool Bool(bool value) { return Take(value); }
  bool Int(int value) { return Take(std::int64_t{value}); }
  bool Uint(unsigned value) { return Take(std::uint64_t{value}); }
  bool Int64(std::int64_t value) { return Take(value); }
  bool Uint64(std::uint64_t value) { return Take(value); }
  bool Double(double value) { return Take(value); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  bool String(const char* text, rapidjson::SizeType size, bool) {
    return Take(tarvo::String(std::string_view(text, size)));
  }
  bool Key(const char* text, rapidjson::SizeType size, bool) {
    levels_.back().key = tarvo::String(std::string_view(text, size));
    return true;
  }
  bool StartObject() { return Open(false); }
  bool StartArray() { return Open(true); }
  bool EndObject(rapidjson::SizeType) {
    DataDictionary dictionary = std::move(levels_.back().dictionary);
    levels_.pop_back();
    if (!levels_.empty()) return Take(std::move(dictionary));
    object = std::move(dictionary);
    return true;
  }
  bool EndArray(rapidjson::SizeType) {
    DataArray array = std::move(levels_.back().array);
    levels_.pop_back();
    return Take(std::move(array));
  }
  // NOLINTEND(readability-identifier-naming)

  std::optional<DataDictionary> object{};

 private:
  struct Level {
    bool isArray = false;
    DataArray array{};
    DataDictionary dictionary{};
    tarvo::String key{};
  };

  bool Open(bool isArray) {
    if (levels_.size() == kDeepestJson || (levels_.empty() && isArray)) return false;
    levels_.push_back({.isArray = isArray});
    return true;
  }

  bool Take(DataValue value) {
    if (levels_.empty()) return false;
    Level& level = levels_.back();
    if (level.isArray)
      level.array.Append(std::move(value));
    else
      level.dictionary.Set(level.key, std::move(value));
    return true;
  }

  std::vector<Level> levels_;
};

template <unsigned kFlags>
std::optional<DataDictionary> Read(std::string_view text) {
  rapidjson::MemoryStream stream(text.data(), text.size());
  TreeBuilder builder;
  rapidjson::Reader reader;
  const bool isRead = !reader.Parse<kFlags>(stream, builder).IsError();
  return isRead ? std::move(builder.object) : std::nullopt;
}

}  // namespace

std::optional<DataDictionary> ReadJsonObject(std::string_view text, BehindJson behind) {
  constexpr unsigned kWhole =
      rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
  constexpr unsigned kStart = kWhole | rapidjson::kParseStopWhenDoneFlag;
  if (behind == BehindJson::Anything) return Read<kStart>(text);
  // The parser takes a NUL for the end.
  return text.find('\0') == std::string_view::npos ? Read<kWhole>(text) : std::nullopt;
}

}  // namespace tarvo::toolkit
