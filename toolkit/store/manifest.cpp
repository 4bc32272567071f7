#include "toolkit/store/manifest.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <utility>

#include "tarvo/symbol_archive.h"
#include "toolkit/base/json_reader.h"
#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kManifest{"command/store/manifest"};
constexpr unsigned kManifestVersion = 1;

using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

std::string TextOf(const DataDictionary& object, std::string_view key) {
  const auto* text = object.FindAs<String>(key);
  return text == nullptr ? std::string() : text->ToStdString();
}

/// The elements of an array that are objects.
template <typename Take>
void ForEachObject(const DataDictionary& object, std::string_view key, Take take) {
  const auto* array = object.FindAs<DataArray>(key);
  if (array == nullptr) return;
  for (const DataValue& element : *array)
    if (const auto* dictionary = element.As<DataDictionary>()) take(*dictionary);
}

ManifestEntry EntryOf(const DataDictionary& object) {
  const auto isTrue = [&](std::string_view key) {
    const auto* value = object.FindAs<bool>(key);
    return value != nullptr && *value;
  };
  ManifestEntry entry{.bundle = TextOf(object, "Bundle"),
                      .module = TextOf(object, "Module"),
                      .platform = TextOf(object, "Platform"),
                      .isExecutable = isTrue("Executable"),
                      .slices = {},
                      .isApplication = isTrue("Application")};
  ForEachObject(object, "Symbols", [&](const DataDictionary& slice) {
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
  if (entry.isApplication) {
    writer.Key("Application");
    writer.Bool(true);
  }
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
  const auto document = ReadJsonObject(json);
  if (!document)
    return Error::IllegalArgument(kManifest.Here(),
                                  "The manifest of the archive is no JSON object.");
  Manifest manifest;
  ForEachObject(*document, "Bundles", [&](const DataDictionary& object) {
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
