#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A second opinion on crash reports: reads the Linux capture's layout line by line, to the letter,
// and shares no code with the reader of the crash-handler module.

struct ReportFrame {
  std::string text;  ///< "libscene.so(update+0x1c) [0x7f…]"
  std::uint64_t address = 0;

  /// The module's file name; empty for an address that no module holds.
  [[nodiscard]] std::string Module() const {
    return text.substr(0, text.find('(') == std::string::npos ? 0 : text.find('('));
  }
};

struct ReportThread {
  std::uint64_t id = 0;
  std::vector<ReportFrame> frames;
  std::vector<std::pair<std::string, std::string>> registers;  ///< the digits behind "0x"
  std::vector<std::pair<std::string, std::string>> variables;

  [[nodiscard]] std::string Name() const { return variables.empty() ? "" : variables[0].second; }
  /// Whether some frame's text names `function` (or a function that starts so).
  [[nodiscard]] bool Shows(std::string_view function) const;
};

struct ReportModule {
  std::string name;
  std::string path;
  std::uint64_t base = 0;
  std::uint64_t size = 0;
  std::string build;
};

struct Report {
  std::vector<ReportThread> threads;
  std::vector<ReportModule> modules;
  std::map<std::string, std::string> exception;
  std::vector<std::string> log;  ///< what is attached, without the marks in front

  [[nodiscard]] const ReportThread* Named(std::string_view name) const;
};

/// Reads a report. Throws std::runtime_error that names the line where the text leaves the layout.
Report ReadReport(std::string_view text);

/// What a report's content gets wrong, apart from its layout: registers that are not the 43 in
/// their order, frames that belong to no listed module and do not say so, threads listed twice.
std::vector<std::string> FindFaults(const Report& report);
