#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "connection.h"
#include "crashlog/base/configuration.h"
#include "support/files.h"
#include "support/zip_builder.h"
#include "test_framework.h"

namespace tarvo::crashhandler {

/// A framework for the module's code, with directories for archives and for the cache.
class ResolveFixture : public testing::Test {
 protected:
  ResolveFixture() {
    g_tarvo.framework = &framework_;
    g_crashlogResolveDiagnosticOutput = 1;
    g_optimizeSymbolFileSearch = true;
    std::filesystem::create_directory(folder_ / "archives");
  }
  ~ResolveFixture() override { g_tarvo.framework = nullptr; }

  using Lines = std::vector<std::string>;

  [[nodiscard]] Url Place(const std::string& path) const {
    return Url::FromSystemPath((folder_ / path).string());
  }
  [[nodiscard]] std::string Text(const std::string& path) const {
    return (folder_ / path).string();
  }
  void WriteFile(const std::string& path, std::string_view content) const {
    std::filesystem::create_directories((folder_ / path).parent_path());
    std::ofstream(folder_ / path, std::ios::binary) << content;
  }
  /// An archive of empty files and, where a path ends in "/", directories.
  void WriteArchive(const std::string& path, const std::vector<std::string>& entries) const {
    ZipBuilder builder;
    for (const std::string& entry : entries)
      builder.Add({.path = entry, .mode = entry.ends_with('/') ? 040755U : 0100644U});
    WriteFile(path, builder.Finish());
  }

  TemporaryDirectory folder_;
  TestFramework framework_;
};

}  // namespace tarvo::crashhandler
