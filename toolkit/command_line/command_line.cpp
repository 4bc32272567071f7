#include "toolkit/command_line/command_line.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <utility>

namespace tarvo::command_line {
namespace {

constexpr int kWrongUsage = 2;

std::string FailureMessage(const CLI::App* app, const CLI::Error& error) {
  const std::string& name = app->get_name();
  return name + ": " + error.what() + "\nRun `" + name + " --help` for more information.\n";
}

/// What is not known is wrong usage beside --help and --version too, at which the parser ends
/// before it says so.
void ParseAll(CLI::App& app, int argc, char** argv) try {
  app.parse(argc, argv);
} catch (const CLI::Success&) {
  const std::vector<std::string> unknown = app.remaining(true);
  if (!unknown.empty()) throw CLI::ExtrasError(unknown);
  throw;
}

}  // namespace

Option Option::Named(const std::string& value) const {
  option_->type_name(value);
  return *this;
}

Option Option::Required() const {
  option_->required();
  return *this;
}

Option Option::ShowDefault() const {
  option_->capture_default_str();
  return *this;
}

Option Option::OneValueEachTime() const {
  option_->allow_extra_args(false);
  return *this;
}

Option Option::Excludes(Option other) const {
  option_->excludes(other.option_);
  return *this;
}

Option Option::Within(int least, int most) const {
  option_->check(CLI::Range(least, most));
  return *this;
}

Option Option::OneOf(const std::vector<std::string>& values) const {
  option_->check(CLI::IsMember(values).description(""));
  return *this;
}

Option Option::Check(const std::function<std::string(const std::string&)>& check) const {
  option_->check(check);
  return *this;
}

template <typename Value>
Option Command::AddOption(const std::string& name, Value& value, const std::string& help) {
  return Option(*app_->add_option(name, value, help));
}

template Option Command::AddOption(const std::string&, std::string&, const std::string&);
template Option Command::AddOption(const std::string&, int&, const std::string&);
template Option Command::AddOption(const std::string&, std::size_t&, const std::string&);
template Option Command::AddOption(const std::string&, std::optional<std::size_t>&,
                                   const std::string&);
template Option Command::AddOption(const std::string&, std::vector<std::string>&,
                                   const std::string&);

Option Command::AddFlag(const std::string& name, bool& isGiven, const std::string& help) {
  return Option(*app_->add_flag(name, isGiven, help));
}

Option Command::AddFlag(const std::string& name, const std::function<void()>& whenGiven,
                        const std::string& help) {
  return Option(*app_->add_flag_callback(name, whenGiven, help));
}

void Command::SetFooter(const std::string& footer) { app_->footer(footer); }

void Command::OnNamed(const std::function<void()>& action,
                      const std::function<std::string()>& check) {
  app_->callback([action, check] {
    if (const std::string refusal = check(); !refusal.empty()) throw CLI::ArgumentMismatch(refusal);
    action();
  });
}

Program::Program(const std::string& name, const std::string& description)
    : Program(std::make_unique<CLI::App>(description, name)) {}

Program::Program(std::unique_ptr<CLI::App> app) : Command(*app), owned_(std::move(app)) {
  app_->failure_message(FailureMessage);
}

Program::~Program() = default;

void Program::SetVersion(const std::string& text) {
  app_->set_version_flag("--version", text, "Print the version and exit");
}

Command Program::AddSubcommand(const std::string& name, const std::string& description) {
  app_->require_subcommand(0, 1)->fallthrough();
  return Command(*app_->add_subcommand(name, description));
}

std::optional<int> Program::Parse(int argc, char** argv) try {
  ParseAll(*app_, argc, argv);
  // Only now, so that a mistyped subcommand is named by the parser.
  const auto isAny = [](const CLI::App*) { return true; };
  if (!app_->get_subcommands(isAny).empty() && app_->get_subcommands().empty())
    throw CLI::RequiredError("A subcommand");
  return std::nullopt;
} catch (const CLI::ParseError& error) {
  return app_->exit(error) == 0 ? 0 : kWrongUsage;
}

}  // namespace tarvo::command_line
