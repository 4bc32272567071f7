#include "toolkit/store/manifest.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <utility>

#include "tarvo/symbol_archive.h"
#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kManifest{"command/store/manifest"};
constexpr unsigned kManifestVersion = 1;

using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

std::string TextOf(const rapidjson::Value& object, const char* key) {
  const auto member = object.FindMember(key);
  if (member == object.MemberEnd() || !member->value.IsString()) return {};
  return {member->value.GetString(), member->value.GetStringLength()};
}

/// The elements of an array that are objects.
template <typename Take>
void ForEachObject(const rapidjson::Value& object, const char* key, Take take) {
  const auto member = object.FindMember(key);
  if (member == object.MemberEnd() || !member->value.IsArray()) return;
  for (const rapidjson::Value& element : member->value.GetArray())
    if (element.IsObject()) take(element);
}

ManifestEntry EntryOf(const rapidjson::Value& object) {
  ManifestEntry entry{.bundle = TextOf(object, "Bundle"),
                      .module = TextOf(object, "Module"),
                      .platform = TextOf(object, "Platform"),
                      .isExecutable = false,
                      .slices = {}};
  const auto executable = object.FindMember("Executable");
  entry.isExecutable = executable != object.MemberEnd() && executable->value.IsTrue();
  ForEachObject(object, "Symbols", [&](const rapidjson::Value& slice) {
    entry.slices.push_back({TextOf(slice, "Architecture"), TextOf(slice, "Id")});
  });
  return entry;
}

void Write(JsonWriter& writer, const char* key, const std::string& text) {
  writer.Key(key);
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void Write(JsonWriter& writer, const ManifestEntry& entry) {
  writer.StartObject();
  Write(writer, "Bundle", entry.bundle);
  Write(writer, "Module", entry.module);
  Write(writer, "Platform", entry.platform);
  writer.Key("Executable");
  writer.Bool(entry.isExecutable);
  writer.Key("Symbols");
  writer.StartArray();
  for (const SymbolSlice& slice : entry.slices) {
    writer.StartObject();
    Write(writer, "Architecture", slice.architecture);
    Write(writer, "Id", slice.id);
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
}

}  // namespace

Result<Manifest> ReadManifest(std::string_view json) {
  rapidjson::Document document;
  // Without recursion: nesting is a stranger's choice.
  document.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
  if (document.HasParseError() || !document.IsObject())
    return Error::IllegalArgument(kManifest.Here(),
                                  "The manifest of the archive is no JSON object.");
  Manifest manifest;
  ForEachObject(document, "Bundles", [&](const rapidjson::Value& object) {
    if (ManifestEntry entry = EntryOf(object); !entry.bundle.empty())
      manifest.push_back(std::move(entry));
  });
  return manifest;
}

std::string WriteManifest(const Manifest& manifest) {
  rapidjson::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.SetIndent(' ', 1);
  writer.StartObject();
  writer.Key("Version");
  writer.Uint(kManifestVersion);
  writer.Key("Bundles");
  writer.StartArray();
  for (const ManifestEntry& entry : manifest) Write(writer, entry);
  writer.EndArray();
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize()) + '\n';
}

Manifest ManifestIn(const std::string& directory) {
  const auto file = OpenRegularFile(directory + '/' + std::string(symbol_archive::kManifestName));
  if (!file || file->size > kMaximumManifestBytes) return {};
  std::string text(file->size, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file->file.get()));
  Result<Manifest> manifest = ReadManifest(text);
  return manifest ? *std::move(manifest) : Manifest();
}

}  // namespace tarvo::toolkit
