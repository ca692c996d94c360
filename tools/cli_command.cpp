// cli::Command: a subcommand's options declared once, parsed by CLI11, read back by name.
#include <CLI/CLI.hpp>

#include <cstring>

#include "cli.h"

namespace cli {

namespace {
// The description already starts with the command's usage lines, which say more than CLI11's
// generic "[OPTIONS] [ARGS...]" for commands with verbs.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App*, std::string) const override { return "\n"; }
};
}  // namespace

Command::Command(const char* name, const std::string& description, const std::string& footer)
    : name_(name), app_(std::make_unique<CLI::App>(description, std::string("quorvane ") + name)), footer_(footer) {
  app_->footer(footer);
  auto formatter = std::make_shared<HelpFormatter>();
  formatter->column_width(26);
  app_->formatter(formatter);
}

Command::~Command() = default;

// "-o,--output" is kept under "output".
std::string Command::key(const std::string& names) const {
  const size_t dashes = names.rfind("--");
  return dashes == std::string::npos ? names : names.substr(dashes + 2);
}

// "-o,--output" -> "-o", "--output".
void Command::remember(const std::string& names, std::set<std::string>& into) {
  for (size_t start = 0; start <= names.size();) {
    const size_t comma = std::min(names.find(',', start), names.size());
    into.insert(names.substr(start, comma - start));
    start = comma + 1;
  }
}

Command& Command::option(const std::string& names, const std::string& help) {
  remember(names, valueOptions_);
  app_->add_option(names, values_[key(names)], help)
      ->expected(1)
      ->allow_extra_args(false)
      ->type_name("VALUE")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  return *this;
}

Command& Command::repeatable(const std::string& names, const std::string& help) {
  remember(names, valueOptions_);
  app_->add_option(names, values_[key(names)], help)
      ->expected(1)
      ->allow_extra_args(false)
      ->type_name("VALUE")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  return *this;
}

Command& Command::flag(const std::string& names, const std::string& help) {
  remember(names, flags_);
  app_->add_flag(names, counts_[key(names)], help);
  return *this;
}

Command& Command::forceFlag() { return flag("-y,--force", "overwrite an existing output file"); }

Command& Command::usageText(const char* text) {
  usageText_ = text;
  return *this;
}

Command& Command::positionals(const std::string& name, const std::string& help) {
  app_->add_option(name, positional_, help)->type_name("");
  return *this;
}

std::optional<int> Command::parse(int argc, char** argv) {
  // CLI11 gives an option the next word as its value whatever it is, so "--read --json box"
  // read the file "--json" and then refused "box" as a stray file. An option of this command
  // standing where a value belongs is refused as such.
  for (int i = 0; i + 1 < argc && std::strcmp(argv[i], "--") != 0; ++i) {
    const std::string next = argv[i + 1];
    if (valueOptions_.count(argv[i]) && (valueOptions_.count(next) || flags_.count(next)))
      return fail(name_, "%s takes a value, but the option %s follows it (see --help)", argv[i], next.c_str());
  }
  std::vector<std::string> args(argv, argv + argc);
  std::reverse(args.begin(), args.end());  // CLI11 takes them last first
  try {
    app_->parse(args);
  } catch (const CLI::CallForHelp&) {
    std::fputs(help().c_str(), stdout);
    return kOk;
  } catch (const CLI::ParseError& e) {
    return fail(name_, "%s (see --help)", e.what());
  }
  return std::nullopt;
}

std::string Command::help() const {
  if (!usageText_) return app_->help();
  std::string text = usageText_;
  if (!footer_.empty()) text += (text.empty() || text.back() == '\n' ? "" : "\n") + footer_;
  return text;
}

bool Command::has(std::string_view name) const {
  const std::string k(name);
  if (auto it = counts_.find(k); it != counts_.end()) return it->second > 0;
  auto it = values_.find(k);
  return it != values_.end() && !it->second.empty();
}

std::optional<std::string> Command::get(std::string_view name) const {
  auto it = values_.find(std::string(name));
  if (it == values_.end() || it->second.empty()) return std::nullopt;
  return it->second.back();
}

std::vector<std::string> Command::all(std::string_view name) const {
  auto it = values_.find(std::string(name));
  return it == values_.end() ? std::vector<std::string>{} : it->second;
}

}  // namespace cli
