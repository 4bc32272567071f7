#include "json/json_writer.h"

#include <gtest/gtest.h>
#include <rapidjson/reader.h>

#include <limits>
#include <random>
#include <string>

namespace tarvo {
namespace {

std::string Document(const DataDictionary& tree) {
  std::string document;
  EXPECT_TRUE(WriteJson(tree, [&](std::string_view bytes) {
    document += bytes;
    return Result<void>();
  }));
  EXPECT_EQ(JsonDocument(tree), document);
  return document;
}

DataDictionary With(String key, DataValue value) {
  DataDictionary tree;
  tree.Set(std::move(key), std::move(value));
  return tree;
}

TEST(JsonWriterTest, EveryKindOfValueStandsInOneDocument) {
  DataArray numbers;
  numbers.Append(std::numeric_limits<std::uint64_t>::max());
  numbers.Append(std::numeric_limits<std::int64_t>::min());
  numbers.Append(0.1);
  numbers.Append(1e300);
  numbers.Append(std::numeric_limits<double>::infinity());
  numbers.Append(std::numeric_limits<double>::quiet_NaN());
  DataArray nested;
  nested.Append(DataArray());
  nested.Append(With("Name", "x"));
  nested.Append(DataDictionary());
  DataDictionary tree;
  tree.Set("Zeta", numbers);
  tree.Set("Alpha", nested);
  tree.Set("", DataValue());
  tree.Set("Flag", true);
  tree.Set("Place", Url::FromSystemPath("/a b"));

  EXPECT_EQ(Document(tree),
            R"({
  "Zeta": [
    18446744073709551615,
    -9223372036854775808,
    0.1,
    1e+300,
    null,
    null
  ],
  "Alpha": [
    [],
    {
      "Name": "x"
    },
    {}
  ],
  "": null,
  "Flag": true,
  "Place": "/a b"
}
)");
  EXPECT_EQ(Document({}), "{}\n");
}

TEST(JsonWriterTest, TextsOfAnyBytesAreValidUtf8) {
  struct Case {
    std::string text;
    std::string written;
  };
  const std::string replaced = "\xEF\xBF\xBD";
  const Case cases[] = {
      {"C:\\a \"b\"", R"(C:\\a \"b\")"},
      {{"\0\x1f\b\f\n\r\t\x7f", 8}, "\\u0000\\u001f\\b\\f\\n\\r\\t\x7f"},
      {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x92\xA3", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x92\xA3"},
      {"\xF4\x8F\xBF\xBF \xEF\xBF\xBF", "\xF4\x8F\xBF\xBF \xEF\xBF\xBF"},
      {"\x80 \xFF", replaced + " " + replaced},
      {"a\xE2\x82z", "a" + replaced + "z"},                             // ends too early
      {"\xF0\x9F\x92", replaced},                                       // cut at the end
      {"\xC0\xAF", replaced + replaced},                                // longer than needed
      {"\xE0\x9F\xBF", replaced + replaced + replaced},                 // longer than needed
      {"\xED\xA0\x80", replaced + replaced + replaced},                 // a surrogate
      {"\xF4\x90\x80\x80", replaced + replaced + replaced + replaced},  // above U+10FFFF
      {"\xF1\x80\xC3\xA4", replaced + "\xC3\xA4"},
  };
  // Also across the borders of what is written in one step.
  constexpr std::size_t kBefore[] = {0, 1, 7, 8, 15, 16, 4092, 4093, 4094, 4095, 4096, 8190};
  constexpr std::size_t kAfter[] = {0, 1, 9, 16};
  for (const Case& test : cases) {
    for (const std::size_t before : kBefore) {
      for (const std::size_t after : kAfter) {
        const auto within = [&](const std::string& text) {
          return std::string(before, 'a') + text + std::string(after, 'b');
        };
        const String text(within(test.text));
        const std::string written = "\"" + within(test.written) + "\"";
        EXPECT_EQ(Document(With(text, text)), "{\n  " + written + ": " + written + "\n}\n");
      }
    }
  }
}

TEST(JsonWriterTest, AnIndependentReaderTakesWhateverIsWritten) {
  std::mt19937 random(1);
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 40, '\0');
    for (char& c : text) c = static_cast<char>(random() % 3 == 0 ? random() : 0xE0 | random());
    const std::string document = Document(With(String(text), String(text)));
    rapidjson::StringStream input(document.c_str());
    rapidjson::BaseReaderHandler<> ignored;
    rapidjson::Reader reader;
    ASSERT_TRUE(reader.Parse<rapidjson::kParseValidateEncodingFlag>(input, ignored)) << document;
  }
}

TEST(JsonWriterTest, TheFirstErrorOfTheSinkEndsTheWriting) {
  DataArray lines;
  for (int i = 0; i < 100'000; ++i) lines.Append("0123456789");
  int calls = 0;
  const Result<void> written =
      WriteJson(With("Lines", lines), [&](std::string_view) -> Result<void> {
        if (++calls < 3) return {};
        return Error::IllegalState({}, "The disk is full.");
      });
  ASSERT_FALSE(written);
  EXPECT_EQ(written.GetError().Message(), "The disk is full.");
  EXPECT_EQ(calls, 3);
}

}  // namespace
}  // namespace tarvo
