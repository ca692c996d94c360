// Shared pieces of the quorvane subcommands: argument parsing (CLI11), one-line errors, JSON
// output (nlohmann-json), the library's log, output-file safety, the timecode-type vocabulary,
// a terminal progress bar.
#pragma once
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "video/tctype_names.h"

namespace CLI {
class App;
}

namespace cli {

// Exit codes of every subcommand.
enum Exit : int { kOk = 0, kFailed = 1, kUsage = 2 };

// Prints "quorvane <command>: <message>" as one line on stderr and returns kUsage or the code
// given. When the command was given --json, an object {"error": message, "command": name,
// "exitCode": code} is printed on standard output as well, so a program reading the JSON sees
// the failure.
int fail(const char* command, const char* format, ...) __attribute__((format(printf, 2, 3)));
int failWith(int code, const char* command, const char* format, ...) __attribute__((format(printf, 3, 4)));

// Set by main from the command line: whether --json was asked for, and -v/--verbose.
void setJsonErrors(bool on);
void setVerbose(bool on);
// Routes the library's log lines: to stderr (as "quorvane: library: ...") only under --verbose,
// otherwise kept quietly; the last error line is available for a plain-words failure message.
// Code that installs its own sink for a while restores this one with installLogSink().
void installLogSink();
const std::string& lastLibraryMessage();

// JSON output: one document per line on standard output.
using JsonValue = nlohmann::ordered_json;
void printJson(const JsonValue& value, FILE* out = stdout);

// A subcommand's command line, parsed by CLI11. Options are declared by their long name
// ("type" is --type); repeatable ones keep every value, others the last one given. The help
// text is the description, the generated option list and the footer (JSON shapes, examples).
class Command {
 public:
  Command(const char* name, const std::string& description, const std::string& footer = {});
  ~Command();
  Command& option(const std::string& names, const std::string& help);      // "--type" or "-o,--output"
  Command& repeatable(const std::string& names, const std::string& help);
  Command& flag(const std::string& names, const std::string& help);
  Command& positionals(const std::string& name, const std::string& help);
  // Adds -y/--force: "overwrite an existing output file".
  Command& forceFlag();
  // The help is `text` followed by the footer, for a command whose usage text already lists its
  // options, instead of the description and the generated option list.
  Command& usageText(const char* text);
  // Parses. nullopt: go on; otherwise the exit code to return (help was printed, or the error
  // was reported through fail()).
  std::optional<int> parse(int argc, char** argv);
  const char* name() const { return name_; }

  bool has(std::string_view name) const;
  std::optional<std::string> get(std::string_view name) const;
  std::vector<std::string> all(std::string_view name) const;
  const std::vector<std::string>& positional() const { return positional_; }
  std::string help() const;

 private:
  std::string key(const std::string& names) const;
  static void remember(const std::string& names, std::set<std::string>& into);
  const char* name_;
  std::unique_ptr<CLI::App> app_;
  std::map<std::string, std::vector<std::string>> values_;
  std::map<std::string, int64_t> counts_;
  std::set<std::string> valueOptions_, flags_{"-h", "--help"};  // every spelling: "-o", "--output"
  std::vector<std::string> positional_;
  const char* usageText_ = nullptr;
  std::string footer_;
};

// The one check of every command's output before any work: refused (exit kFailed, one line)
// when it is one of the inputs (by file identity), a directory, or an existing file without
// -y/--force. "-" (standard output) always passes. kOk, or the failure already reported.
int checkOutput(const char* command, const std::string& output, bool force,
                const std::vector<std::string>& inputs = {});

// The timecode-type vocabulary (video/tctype_names.h) for an option's value, with the message
// listing the accepted names when it is unknown.
std::optional<VIDTCTYPEINFO> tcType(std::string_view text);
std::string tcTypeNames();
// Timecode text in all four fields HH:MM:SS:FF (';' or '.' before the frames allowed) of a
// type. Fewer fields are refused as ambiguous ("23:59:59" could be HH:MM:SS or MM:SS:FF).
// nullopt with *why set on failure.
std::optional<uint32_t> parseTimecode(const std::string& text, uint32_t tctype, std::string* why);
// "30000/1001", "25/1": a rate pair reduced to lowest terms.
std::string rateText(uint64_t rate, uint64_t scale);

// Strict number parsing (whole string, range-checked; decimal or 0x hex). nullopt on error.
std::optional<int64_t> parseInt(std::string_view text);
std::optional<uint32_t> parseU32(std::string_view text);
std::optional<double> parseDouble(std::string_view text);

// Reads a whole file ("-" is standard input). nullopt with errno set on failure.
std::optional<std::string> readFile(const std::string& path);

// The body of a JSON string for text (quotes, backslashes and control characters escaped).
std::string jsonEscape(std::string_view text);

// A one-line progress bar on stderr, shown only when stderr is a terminal.
class Progress {
 public:
  Progress(const char* label, uint64_t total);
  ~Progress();
  void update(uint64_t done);

 private:
  const char* label_;
  uint64_t total_;
  int lastPercent_ = -1;
  bool enabled_;
};

}  // namespace cli
