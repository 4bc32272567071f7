#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <variant>

#include "tarvo/result.h"
#include "tarvo/string.h"

namespace tarvo {

enum class ConfigurationKind : std::uint32_t { Bool = 0, Int = 1, Float = 2, String = 3 };

/// Category of an entry that any user of the program may set. The only one so far.
inline constexpr std::uint32_t kGeneralCategory = 1;

/// One declared entry. The texts are string literals; `variable` lives as long as the module.
struct ConfigurationRecord {
  const char* name = nullptr;  ///< the variable's name, "g_…"
  const char* help = nullptr;
  void* variable = nullptr;  ///< bool, std::int64_t, double or String, by kind
  std::uint32_t category = kGeneralCategory;
  ConfigurationKind kind = ConfigurationKind::Bool;
  std::int64_t minimum = std::numeric_limits<std::int64_t>::min();  ///< Int only
  std::int64_t maximum = std::numeric_limits<std::int64_t>::max();  ///< Int only
  const char* defaultText = "";                                     ///< String only
  /// The default of the other kinds, for listings.
  std::variant<std::monostate, bool, std::int64_t, double> defaultValue{};
};

/// The table of one module's entries, in order of declaration. A declaration never fails: beyond
/// the table's room a Bool, Int or Float variable still gets its default and a String declaration
/// is dropped. Declarations run while the module is loaded, in one thread.
class ConfigurationTable {
 public:
  static constexpr std::size_t kCapacity = 256;

  /// Each sets `variable` to the default, records the entry and returns the default.
  bool DeclareBool(const char* name, bool& variable, bool defaultValue, std::uint32_t category,
                   const char* help) {
    variable = defaultValue;
    Record({.name = name,
            .help = help,
            .variable = &variable,
            .category = category,
            .kind = ConfigurationKind::Bool,
            .defaultValue = defaultValue});
    return defaultValue;
  }
  std::int64_t DeclareInt(const char* name, std::int64_t& variable, std::int64_t defaultValue,
                          std::int64_t minimum, std::int64_t maximum, std::uint32_t category,
                          const char* help) {
    variable = defaultValue;
    Record({.name = name,
            .help = help,
            .variable = &variable,
            .category = category,
            .kind = ConfigurationKind::Int,
            .minimum = minimum,
            .maximum = maximum,
            .defaultValue = defaultValue});
    return defaultValue;
  }
  double DeclareFloat(const char* name, double& variable, double defaultValue,
                      std::uint32_t category, const char* help) {
    variable = defaultValue;
    Record({.name = name,
            .help = help,
            .variable = &variable,
            .category = category,
            .kind = ConfigurationKind::Float,
            .defaultValue = defaultValue});
    return defaultValue;
  }
  /// The variable itself starts out empty; the host gives it the default with its other values.
  const char* DeclareString(const char* name, String& variable, const char* defaultText,
                            std::uint32_t category, const char* help) {
    Record({.name = name,
            .help = help,
            .variable = &variable,
            .category = category,
            .kind = ConfigurationKind::String,
            .defaultText = defaultText});
    return defaultText;
  }

  [[nodiscard]] std::span<const ConfigurationRecord> Records() const noexcept {
    return {records_.data(), size_};
  }

 private:
  friend struct BorderLayout;
  void Record(const ConfigurationRecord& record) {
    if (size_ < kCapacity) records_[size_++] = record;
  }

  std::array<ConfigurationRecord, kCapacity> records_;
  std::size_t size_ = 0;
};

/// What a module may ask of the configuration besides its own variables.
class ConfigurationService {
 public:
  /// The value of a String entry of any module or of the host that some source has set. An
  /// illegal-argument error when there is no such entry or no source has set it.
  virtual Result<String> QueryString(std::string_view name) const = 0;

 protected:
  ~ConfigurationService() = default;
};

}  // namespace tarvo
