#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/host/host.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/symbolification.h"

namespace tarvo::symbolreader {

/// A directory of its own, removed with all in it at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

/// How one kind of debug file is made from data/sample.cpp.
struct Recipe {
  std::string_view name;
  std::string_view bundle;        ///< what is loaded
  std::string_view architecture;  ///< what it is loaded for
  std::string_view file;          ///< what llvm-symbolizer is given, with its further arguments
  bool isIndexed;
  std::uint64_t imageStart;  ///< where the image begins by its own account
  std::string_view script;   ///< run by sh; $SAMPLE is the source
};

inline void PrintTo(const Recipe& recipe, std::ostream* out) { *out << recipe.name; }

extern const std::vector<Recipe> kRecipes;
/// A program of 40 units.
extern const Recipe kManyUnits;
/// Two libraries that share what dwz has taken out of them, and "plain", one of them before that.
extern const Recipe kShared;
const Recipe& RecipeNamed(std::string_view name);

/// The directory in which the recipe was carried out, once for all tests. Empty when it could not
/// be, mostly for want of a tool; `Log()` says why.
std::filesystem::path Make(const Recipe& recipe);
std::string Log();

/// Skips the test when the recipe cannot be carried out here.
#define TARVO_MAKE_OR_SKIP(directory, recipe)                                \
  const std::filesystem::path directory = tarvo::symbolreader::Make(recipe); \
  if (directory.empty()) GTEST_SKIP() << (recipe).name << ": " << tarvo::symbolreader::Log()

/// What a look-up gave; `error` is set when it failed.
struct Answer {
  std::string function;
  std::string file;
  std::int64_t line = 0;
  std::string error;
  std::string callers{};  ///< " < FUNCTION at FILE:LINE" for each function that it is inlined into

  friend bool operator==(const Answer&, const Answer&) = default;
  friend std::ostream& operator<<(std::ostream& stream, const Answer& answer);
};

/// The addresses of the executable sections of `file`, every byte, and what llvm-symbolizer answers
/// for each. `arguments` are "FILE" or "FILE OPTION…".
std::map<std::uint64_t, Answer> SymbolizerAnswers(const std::filesystem::path& directory,
                                                  std::string_view arguments);

/// A host with the symbol reader, its indices in `indices`.
std::unique_ptr<Host> StartHost(const std::filesystem::path& indices,
                                std::vector<std::string> arguments = {},
                                const std::string& module = SYMBOLREADER_MODULE);
/// Both interfaces of the symbol reader.
struct Reader {
  SymbolificationRef plain;
  InlineSymbolificationRef chains;
};
Reader BindReader(Host& host);
/// Loads and resolves, as a crash log does for each frame; by both interfaces, which must agree.
Answer Ask(const Reader& reader, const std::filesystem::path& bundle, std::string_view architecture,
           std::uint64_t offset);
/// The answers of a new reader of a new host to `offsets`.
std::map<std::uint64_t, Answer> Answers(const std::filesystem::path& indices, const Recipe& recipe,
                                        const std::map<std::uint64_t, Answer>& addresses,
                                        std::vector<std::string> arguments = {});

void WriteFile(const std::filesystem::path& path, std::string_view bytes);
std::vector<std::string> ListDirectory(const std::filesystem::path& path);

}  // namespace tarvo::symbolreader
