#include "configuration.h"

#include <cstdlib>

#include "index/name_memo.h"
#include "symbol_file_cache.h"
#include "tarvo/url.h"

namespace tarvo::symbolreader {

String g_symbolIndexDirectory;
std::int64_t g_symbolIndexMemory = 0;
std::int64_t g_symbolIndexTime = 0;

namespace {

constexpr std::int64_t kDefaultMemory = 8192;
constexpr std::int64_t kMostMemory = 1 << 20;
constexpr std::int64_t kDefaultTime = 600;
constexpr std::int64_t kMostTime = 24 * 60 * 60;

std::string g_directory;

/// By the XDG base directory rules relative paths are ignored.
std::string UserCacheDirectory() {
  const auto absolute = [](const char* name) {
    const char* value = std::getenv(name);
    return std::string(value != nullptr && value[0] == '/' ? value : "");
  };
  if (const std::string cache = absolute("XDG_CACHE_HOME"); !cache.empty()) return cache;
  const std::string home = absolute("HOME");
  return home.empty() ? std::string() : home + "/.cache";
}

Result<void> Initialise() {
  const Result<Url> directory = Url::FromText(g_symbolIndexDirectory);
  if (!directory) return directory.GetError();
  g_directory = directory->SystemPath().ToStdString();
  if (!g_directory.empty()) return {};
  const std::string cache = UserCacheDirectory();
  g_directory = cache.empty() ? std::string() : cache + "/tarvo/symbols";
  return {};
}

void Free() {
  SymbolFileCache::Instance().Clear();
  BorrowedNames::Clear();
}

}  // namespace

const std::string& IndexDirectory() { return g_directory; }

void RegisterConfiguration(Registration& registration) {
  registration.configuration.DeclareString(
      "g_symbolIndexDirectory", g_symbolIndexDirectory, "", kGeneralCategory,
      "url to directory for indices of symbol files (defaults to the user's cache directory)");
  registration.configuration.DeclareInt(
      "g_symbolIndexMemory", g_symbolIndexMemory, kDefaultMemory, 1, kMostMemory, kGeneralCategory,
      "memory limit in MiB for making the index of one symbol file; without its index a file is "
      "resolved more slowly");
  registration.configuration.DeclareInt("g_symbolIndexTime", g_symbolIndexTime, kDefaultTime, 1,
                                        kMostTime, kGeneralCategory,
                                        "time limit in seconds for making the index of one symbol "
                                        "file");
  registration.lifecycle.push_back({.initialise = Initialise, .free = Free});
}

}  // namespace tarvo::symbolreader
