#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>

#include "tarvo/data_dictionary.h"
#include "tarvo/string.h"

namespace tarvo::toolkit {

/// Whose a module is.
enum class ModuleOwner : std::uint8_t { Application, System, CrashHandler };

/// By its name and the path and the build that the report gives for it, empty where it gives none:
/// a module that has a build is none of the system's.
[[nodiscard]] ModuleOwner OwnerOf(std::string_view name, std::string_view path,
                                  std::string_view build);

/// What a report says of its modules, for who asks for their symbols. Holds the report's own texts.
class ModuleFacts {
 public:
  ModuleFacts() = default;
  explicit ModuleFacts(const DataDictionary& crashLog);

  struct Fact {
    String bundle{};  ///< what its bundle in an archive is called; empty where it is not listed
    ModuleOwner owner = ModuleOwner::Application;
  };
  [[nodiscard]] Fact Of(const String& module);
  /// The system that the report is of; empty where it is not known.
  [[nodiscard]] const String& Platform() const noexcept { return platform_; }

 private:
  String platform_;
  double version_ = 0;
  DataArray modules_;
  /// Of each name's first module; made at the first question.
  std::map<std::string_view, std::size_t> places_;
};

}  // namespace tarvo::toolkit
