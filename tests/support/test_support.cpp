#include "support/test_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace qtest {

LogCapture::LogCapture() { zrLogSetSink(&LogCapture::sink, this); }
LogCapture::~LogCapture() { zrLogSetSink(nullptr, nullptr); }

void LogCapture::sink(void* user, int kind, uint32_t severity, uint32_t, uint32_t, const char* text) {
  static_cast<LogCapture*>(user)->lines_.push_back({kind, severity, text});
}

bool LogCapture::contains(const std::string& text) const {
  for (const auto& l : lines_)
    if (l.text == text) return true;
  return false;
}

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quorvane-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}
TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

namespace {
std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
}  // namespace

CommandResult runCommand(const std::string& commandLine) {
  TempDir tmp;
  std::string out = tmp.file("out"), err = tmp.file("err");
  std::string full = "(" + commandLine + ") >" + shellQuote(out) + " 2>" + shellQuote(err) + " </dev/null";
  int status = std::system(full.c_str());
  CommandResult r;
  r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = slurp(out);
  r.err = slurp(err);
  return r;
}

CommandResult runTool(const std::string& args) { return runCommand(shellQuote(QUORVANE_TOOL) + " " + args); }

std::string shellQuote(const std::string& text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'')
      out += "'\\''";
    else
      out += c;
  }
  return out + "'";
}

std::vector<uint8_t> readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string samplePath(const std::string& name) { return std::string(QUORVANE_SAMPLES_DIR) + "/" + name; }

bool haveProgram(const std::string& name) {
  return std::system(("command -v " + shellQuote(name) + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace qtest

#include <fcntl.h>
#include <sys/file.h>

#include <gtest/gtest.h>

namespace qtest {

std::string encodedStream(const std::string& name, const std::string& ffmpegArgs) {
  namespace fs = std::filesystem;
  fs::path dir = fs::path(QUORVANE_BINARY_DIR) / "test-streams";
  fs::create_directories(dir);
  fs::path target = dir / name;
  // One maker at a time per cache; the others wait and then find the file.
  int lockFd = ::open((dir / ".lock").c_str(), O_CREAT | O_RDWR, 0644);
  if (lockFd >= 0) ::flock(lockFd, LOCK_EX);
  std::string result;
  if (fs::exists(target) && fs::file_size(target) > 0) {
    result = target.string();
  } else {
    fs::path partial = target;
    partial += ".partial";
    auto r = runCommand("ffmpeg -nostdin -y -v error " + ffmpegArgs + " " + shellQuote(partial.string()));
    if (r.exitCode == 0 && fs::exists(partial) && fs::file_size(partial) > 0) {
      fs::rename(partial, target);
      result = target.string();
    } else {
      ADD_FAILURE() << "ffmpeg could not make " << name << ": " << r.err;
    }
  }
  if (lockFd >= 0) ::close(lockFd);
  return result;
}

std::vector<uint8_t> emulationPrevented(const std::vector<uint8_t>& rbsp) {
  std::vector<uint8_t> out;
  int zeros = 0;
  for (uint8_t b : rbsp) {
    if (zeros >= 2 && b <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
  }
  return out;
}

}  // namespace qtest
