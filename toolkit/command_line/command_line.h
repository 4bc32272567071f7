#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

/// Command lines: options, flags and subcommands are declared, then parsed into plain variables.
///
///     command_line::Program program("frame", "Draws frames.");
///     int width = 80;
///     program.AddOption("--width", width, "Columns").Named("N").Within(40, 1000);
///     if (const auto status = program.Parse(argc, argv)) return *status;
///
/// CLI11 does the work. Its headers take longer to compile than most programs, so one file includes
/// them. Names and texts are CLI11's: "--width" is an option, "FILE" an argument by position.
/// Declaring the same name twice, or one that is none, throws std::exception.
namespace tarvo::command_line {

/// An option, a flag or an argument that was added to a command. A handle: copies mean the same
/// one.
class Option {
 public:
  explicit Option(CLI::Option& option) noexcept : option_(&option) {}

  /// What stands for the value in the help, for example "FILE".
  Option Named(const std::string& value) const;
  Option Required() const;
  /// The variable's value before the parsing stands in the help.
  Option ShowDefault() const;
  /// Takes one value each time it is given, for a list that may be followed by other arguments.
  Option OneValueEachTime() const;
  Option Excludes(Option other) const;

  /// Refuses numbers out of [least, most]; the help shows the bounds.
  Option Within(int least, int most) const;
  /// Refuses all but these values.
  Option OneOf(const std::vector<std::string>& values) const;
  /// Refuses a value for which `check` returns a text, which says why.
  Option Check(const std::function<std::string(const std::string&)>& check) const;

 private:
  CLI::Option* option_;
};

/// A program or one of its subcommands. A handle: copies mean the same one.
class Command {
 public:
  explicit Command(CLI::App& app) noexcept : app_(&app) {}

  /// What is given goes to `value`, which outlives the parsing: a std::string, an int, a
  /// std::size_t, a std::optional<std::size_t> or a std::vector<std::string>.
  template <typename Value>
  Option AddOption(const std::string& name, Value& value, const std::string& help);
  Option AddFlag(const std::string& name, bool& isGiven, const std::string& help);
  Option AddFlag(const std::string& name, const std::function<void()>& whenGiven,
                 const std::string& help);

  /// Lines below the help.
  void SetFooter(const std::string& footer);

  /// `action` is called when the subcommand was named and all that it was given is in its
  /// variables. Before, `check` may refuse what was given together by a text that says why.
  void OnNamed(
      const std::function<void()>& action,
      const std::function<std::string()>& check = [] { return std::string(); });

 protected:
  CLI::App* app_;
};

/// A whole command line.
class Program : public Command {
 public:
  Program(const std::string& name, const std::string& description);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// The option --version, which prints `text`.
  void SetVersion(const std::string& text);
  /// One has to be named when there are any. The program's options may stand before or after it.
  Command AddSubcommand(const std::string& name, const std::string& description);

  /// Nothing when the program should go on. Else its exit status: 0 when help or version were asked
  /// for and printed, 2 when the command line was wrong and why is on standard error.
  [[nodiscard]] std::optional<int> Parse(int argc, char** argv);

 private:
  explicit Program(std::unique_ptr<CLI::App> app);

  std::unique_ptr<CLI::App> owned_;
};

}  // namespace tarvo::command_line
