// Shared pieces of the quorvane subcommands: argument parsing, one-line errors, JSON output,
// a terminal progress bar.
#pragma once
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// Exit codes of every subcommand.
enum Exit : int { kOk = 0, kFailed = 1, kUsage = 2 };

// Prints "quorvane <command>: <message>" as one line on stderr and returns kUsage or the code given.
int fail(const char* command, const char* format, ...) __attribute__((format(printf, 2, 3)));
int failWith(int code, const char* command, const char* format, ...) __attribute__((format(printf, 3, 4)));

// Parses "--name value", "--name=value" and bare "--flag" options among positional arguments.
// `valued` lists the options that take a value; any other "--x" is a flag. "-" is positional,
// and everything after "--" is positional too. "-h" is read as "--help".
class Args {
 public:
  bool parse(int argc, char** argv, std::initializer_list<std::string_view> valued,
             std::initializer_list<std::string_view> flags);
  const std::string& error() const { return error_; }
  bool has(std::string_view name) const { return options_.count(std::string(name)) != 0; }
  std::optional<std::string> get(std::string_view name) const;
  // Every value given for a repeatable option, in order.
  std::vector<std::string> all(std::string_view name) const;
  const std::vector<std::string>& positional() const { return positional_; }

 private:
  std::multimap<std::string, std::string> options_;
  std::vector<std::string> positional_;
  std::string error_;
};

// Strict number parsing (whole string, range-checked; decimal or 0x hex). nullopt on error.
std::optional<int64_t> parseInt(std::string_view text);
std::optional<uint32_t> parseU32(std::string_view text);
std::optional<double> parseDouble(std::string_view text);

// Reads a whole file ("-" is standard input). nullopt with errno set on failure.
std::optional<std::string> readFile(const std::string& path);

// Minimal streaming JSON writer: objects, arrays, strings (escaped), numbers, booleans.
class Json {
 public:
  Json& beginObject(std::string_view key = {});
  Json& endObject();
  Json& beginArray(std::string_view key = {});
  Json& endArray();
  Json& str(std::string_view key, std::string_view value);
  Json& num(std::string_view key, int64_t value);
  Json& num(std::string_view key, double value);
  Json& boolean(std::string_view key, bool value);
  Json& null(std::string_view key);
  // Array elements: call with an empty key.
  const std::string& text() const { return out_; }

 private:
  void separator(std::string_view key);
  std::string& quoted(std::string_view text);
  std::string out_;
  std::vector<bool> first_{true};
};
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
