// The test process itself: an environment variable set for a scope, and bodies run in child
// processes (for the tests of several processes sharing one file).
#pragma once
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace qtest {

// Sets (or, given null, unsets) an environment variable; the old state comes back at scope end.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = getenv(name)) old_ = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

// Runs body() in a child process that exits with its result: the child never returns into the test.
template <class Body>
pid_t spawn(Body body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

// Waits for a child: its exit code, or -1 when it did not exit normally.
inline int exitCodeOf(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace qtest
