#include "host/commands/CommandLine.h"

#include <CLI/CLI.hpp>

namespace Host::Commands {

Option& Option::Named(const std::string& valueName) {
  option_->type_name(valueName);
  return *this;
}

Option& Option::ShowDefault() {
  option_->capture_default_str();
  return *this;
}

Option& Option::Required() {
  option_->required();
  return *this;
}

Option& Option::OneOf(const std::vector<std::string>& values) {
  option_->check(CLI::IsMember(values));
  return *this;
}

Option& Option::OneEachTime() {
  option_->allow_extra_args(false);
  return *this;
}

Option& Option::NotEmpty() {
  return Check([](const std::string& value) { return value.empty() ? "its value is empty" : std::string(); });
}

Option& Option::Check(const std::function<std::string(const std::string&)>& problemOf) {
  // With a copy, since the parser lets a check change the value.
  option_->check(CLI::Validator([problemOf](std::string& value) { return problemOf(value); }, ""));
  return *this;
}

Option Options::Text(const std::string& name, std::string& target, const std::string& help) {
  return Option(app_->add_option(name, target, help));
}

Option Options::Texts(const std::string& name, std::vector<std::string>& target, const std::string& help) {
  return Option(app_->add_option(name, target, help));
}

Option Options::Flag(const std::string& name, bool& target, const std::string& help) {
  return Option(app_->add_flag(name, target, help));
}

Options Options::AddCommand(const std::string& name, const std::string& description) {
  CLI::App* command = app_->add_subcommand(name, description);
  app_->require_subcommand(1);
  return Options(command);
}

std::string Options::Name() const {
  return app_->get_name();
}

bool Options::WasChosen() const {
  return app_->parsed();
}

Program::Program(const std::string& description, const std::string& version)
    : app_(std::make_unique<CLI::App>(description, "netdb")) {
  app_->set_version_flag("--version", version);
  app_->require_subcommand(1);
}

Program::~Program() = default;

Options Program::AddCommand(const std::string& name, const std::string& description) {
  return Options(app_->add_subcommand(name, description));
}

Program::Parsed Program::Parse(int argc, const char* const* argv) {
  Parsed parsed;
  try {
    app_->parse(argc, argv);
    parsed.wish = Wish::kRun;
  } catch (const CLI::CallForVersion& version) {
    parsed.wish = Wish::kVersion;
    parsed.text = version.what();
  } catch (const CLI::CallForHelp&) {
    parsed.wish = Wish::kHelp;
  } catch (const CLI::ParseError& error) {
    parsed.text = error.what();
  }
  for (auto chosen = app_->get_subcommands(); !chosen.empty(); chosen = chosen[0]->get_subcommands()) {
    parsed.command.push_back(chosen[0]->get_name());
  }
  return parsed;
}

std::string Program::Help() const {
  return app_->help();
}

std::optional<std::string> Program::HelpOf(const std::vector<std::string>& command) const {
  const CLI::App* app = app_.get();
  std::string before;
  for (const std::string& name : command) {
    const auto within = app->get_subcommands([&name](const CLI::App* known) { return known->get_name() == name; });
    if (within.empty()) {
      return std::nullopt;
    }
    before += (before.empty() ? "" : " ") + app->get_name();
    app = within[0];
  }
  return app->help(before);
}

}  // namespace Host::Commands
