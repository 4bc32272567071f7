// The SDK's value types, where a fault would be real.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarvo/data_dictionary.h"
#include "tarvo/format.h"
#include "tarvo/url.h"

namespace tarvo {
namespace {

using namespace std::string_literals;

TEST(Format, FillsPlaceholdersInOrder) {
  const struct {
    String formatted;
    const char* expected;
  } kCases[] = {
      {Format("no placeholder", 1), "no placeholder"},
      {Format("@ and @", "a@b", 7), "a@b and 7"},
      {Format("@ @", "only one"), "only one @"},
      {Format("(0x@{x})", std::uint64_t{0xFFFFFFFFFFFFFFFF}), "(0xffffffffffffffff)"},
      {Format("@{x}", std::int8_t{-1}), "ff"},
      {Format("@{y}", 10), "10{y}"},
      {Format("@{x}", "text"), "text"},
      {Format("@@@", true, 'c', 0.5), "truec0.5"},
      {Format("@", Url::FromSystemPath("/a@b")), "/a@b"},
      {Format("@", Error::OutOfMemory({})), "net.tarvo.error.outofmemory"},
      {Format("@", Error::Plain({}, "@")), "@"},
  };
  for (const auto& [formatted, expected] : kCases) EXPECT_EQ(formatted, expected);
}

TEST(Url, ReadsItsTextForm) {
  const auto refused = [](const char* text, const char* reason) {
    return "Could not convert \""s + text + "\" into a URL: " + reason;
  };
  const char* const kScheme = "only file URLs and system paths are supported";
  const char* const kEscape = "a \"%\" is not followed by two hex digits";
  const struct {
    String text;
    std::string path;  ///< or the error
  } kCases[] = {
      {"", ""},
      {"/a b%20c", "/a b%20c"},
      {"relative/path", "relative/path"},
      {"dir/with:colon", "dir/with:colon"},
      {"./a:b", "./a:b"},
      {"file:///a%20b%2Fc", "/a b/c"},
      {"FILE:/a", "/a"},
      {"file://LocalHost/a", "/a"},
      {"file:///%E4%BD%A0", "/\xE4\xBD\xA0"},
      {"http://host/a", refused("http://host/a", kScheme)},
      {"c:\\temp", refused("c:\\temp", kScheme)},
      {"file://other/a", refused("file://other/a", "its host is not this machine")},
      {"file:a", refused("file:a", "a file URL needs an absolute path")},
      {"file://localhost", refused("file://localhost", "a file URL needs an absolute path")},
      {"file:///a%2", refused("file:///a%2", kEscape)},
      {"file:///a%-1", refused("file:///a%-1", kEscape)},
      {"file:///a%00b", refused("file:///a%00b", "it holds a NUL byte")},
      {"/a\0b"s, "Could not convert \"/a\0b\" into a URL: it holds a NUL byte"s},
  };
  for (const auto& [text, path] : kCases) {
    const auto url = Url::FromText(text);
    EXPECT_EQ(url ? url->SystemPath() : url.GetError().Message(), path) << text.View();
    if (!url) {
      EXPECT_EQ(url.GetError().ClassId(), Error::kConversion) << text.View();
    }
  }
}

TEST(Url, ReplacesTheSuffixOfTheNameOnly) {
  const struct {
    const char* path;
    const char* suffix;
    const char* expected;
  } kCases[] = {
      {"/d.x/a_bugreport.txt", "resolved.json", "/d.x/a_bugreport.resolved.json"},
      {"/d.x/name", "source", "/d.x/name.source"},
      {"/d/.profile", "source", "/d/.profile.source"},
      {"a.b.c", "d", "a.b.d"},
      {"a.", "d", "a..d"},
      {"/d/", "source", "The URL names no file."},
      {"", "source", "The URL names no file."},
      {"/d/a", "b/c", "The suffix is no file suffix."},
  };
  for (const auto& [path, suffix, expected] : kCases) {
    const auto url = Url::FromSystemPath(path).WithSuffix(suffix);
    EXPECT_EQ(url ? url->SystemPath() : url.GetError().Message(), expected) << path;
  }
}

TEST(String, SlicesShareAndBoundThemselves) {
  String slice;
  {
    const String text(std::string(100, 'a') + "tail");
    slice = text.Slice(100, 1000);
    EXPECT_EQ(text.Slice(200), "");
    EXPECT_EQ(text.Erased(1, 1000), "a");
  }
  EXPECT_EQ(slice, "tail");
  const String self = slice;
  slice = slice.Slice(1);
  EXPECT_EQ(slice, "ail");
  EXPECT_EQ(self, "tail");
  EXPECT_TRUE(String("MacOS \xC3\x84").EqualsIgnoringCase("mACos \xC3\x84"));
  EXPECT_FALSE(String("\xC3\x84").EqualsIgnoringCase("\xC3\xA4"));
}

/// The dictionary on one line: "{a:1,b:{…}}".
std::string Text(const DataDictionary& dictionary) {
  std::string text = "{";
  for (const auto& [key, value] : dictionary) {
    if (text.size() > 1) text += ',';
    text += key.ToStdString() + ':';
    if (const auto* number = value.As<std::int64_t>()) text += std::to_string(*number);
    if (const auto* nested = value.As<DataDictionary>()) text += Text(*nested);
    if (const auto* array = value.As<DataArray>()) text += '#' + std::to_string(array->Size());
  }
  return text + '}';
}

TEST(DataDictionary, CopiesDoNotSeeEachOthersChanges) {
  DataDictionary inner;
  inner.Set("x", 1);
  DataArray array;
  array.Append(1);
  DataDictionary original;
  original.Set("inner", inner);
  original.Set("array", array);
  DataDictionary copy = original;
  // A change deep in the copy leaves every other holder of the shared parts alone.
  copy.FindMutable("inner")->As<DataDictionary>()->Set("y", 2);
  copy.FindMutable("array")->As<DataArray>()->Append(2);
  copy.Set("own", 3);
  inner.Set("x", 9);
  EXPECT_EQ(Text(original), "{inner:{x:1},array:#1}");
  EXPECT_EQ(Text(copy), "{inner:{x:1,y:2},array:#2,own:3}");
  EXPECT_EQ(Text(inner), "{x:9}");
}

TEST(DataDictionary, KeepsItselfAsItsOwnValue) {
  DataDictionary dictionary;
  dictionary.Set("a", 1);
  dictionary.Set("self", dictionary);
  EXPECT_EQ(Text(dictionary), "{a:1,self:{a:1}}");
}

/// Crosses the border of the indexed form, with copies taken on both sides of it.
TEST(DataDictionary, FindsEveryKeyAroundTheIndexBorder) {
  DataDictionary dictionary;
  std::vector<DataDictionary> copies;
  std::string expected = "{";
  std::vector<std::string> expectedCopies;
  for (int i = 0; i < 1000; ++i) {
    // Lengths differ, so that keys end inside and at the border of a hash word; one key is empty.
    const std::string key =
        i == 0 ? "" : std::string(static_cast<std::size_t>(i % 11), 'k') + std::to_string(i);
    dictionary.Set(key, -1);
    dictionary.Set(key, i);
    expected += (i == 0 ? "" : ",") + key + ':' + std::to_string(i);
    if (i == 46 || i == 47 || i == 48 || i == 500) {
      copies.push_back(dictionary);
      expectedCopies.push_back(expected + '}');
    }
    ASSERT_EQ(*dictionary.FindAs<std::int64_t>(key), i);
    ASSERT_EQ(dictionary.Find(key + '?'), nullptr);
  }
  EXPECT_EQ(Text(dictionary), expected + '}');
  for (std::size_t i = 0; i < copies.size(); ++i) EXPECT_EQ(Text(copies[i]), expectedCopies[i]);
}

TEST(DataDictionary, GetNamesTheKeyThatIsMissingOrOfAnotherType) {
  DataDictionary dictionary;
  dictionary.Set("number", 1U);
  const auto text = [&](const auto& result) { return result.GetError().Message(); };
  EXPECT_EQ(*dictionary.Get<std::uint64_t>("number"), 1U);
  EXPECT_EQ(text(dictionary.Get<std::int64_t>("number")), "Another type has key number");
  EXPECT_EQ(text(dictionary.Get<String>("none")), "There is no value of key none");
}

}  // namespace
}  // namespace tarvo
