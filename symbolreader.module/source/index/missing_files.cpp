#include "index/missing_files.h"

#include <llvm/Support/xxhash.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "index/varint.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

std::uint64_t FileState(const fs::path& path) {
  struct stat status{};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  const std::array facts = {static_cast<std::uint64_t>(status.st_size),
                            static_cast<std::uint64_t>(status.st_ino),
                            static_cast<std::uint64_t>(status.st_mtim.tv_sec),
                            static_cast<std::uint64_t>(status.st_mtim.tv_nsec)};
  return llvm::xxh3_64bits({reinterpret_cast<const std::uint8_t*>(facts.data()), sizeof facts}) | 1;
}

std::uint64_t StateAt(const std::string& place, const std::string& debugFile) {
  std::uint64_t state = 0;
  for (const std::string& path : PathsOf(place, debugFile)) state = state * 31 + FileState(path);
  return state;
}

}  // namespace

std::vector<std::string> PackagesBeside(const std::string& debugFile) {
  std::vector<std::string> packages = {debugFile + ".dwp"};
  if (fs::path(debugFile).extension() == ".debug")
    packages.push_back(fs::path(debugFile).replace_extension(".dwp"));
  return packages;
}

std::vector<std::string> PathsOf(const std::string& place, const std::string& debugFile) {
  if (place == kPackages) return PackagesBeside(debugFile);
  return {fs::path(debugFile).parent_path() / place};
}

std::vector<MissingFile> LookAt(std::span<const std::string> places, const std::string& debugFile) {
  std::vector<MissingFile> files;
  for (const std::string& place : places) files.push_back({place, StateAt(place, debugFile)});
  return files;
}

std::string Encode(const MissingFile& file) {
  std::string bytes;
  AppendText(bytes, file.place);
  AppendVarint(bytes, file.state);
  return bytes;
}

std::vector<MissingFile> DecodeFiles(std::span<const std::uint8_t> bytes, std::uint64_t count) {
  std::vector<MissingFile> files;
  VarintReader reader(bytes);
  for (std::uint64_t i = 0; i < count && !reader.IsAtEnd(); ++i) {
    std::string place = reader.ReadText();
    files.push_back({std::move(place), reader.Read()});
  }
  return files;
}

bool HasOneCome(std::span<const MissingFile> files, const std::string& debugFile) {
  return std::ranges::any_of(
      files, [&](const MissingFile& file) { return StateAt(file.place, debugFile) != file.state; });
}

}  // namespace tarvo::symbolreader
