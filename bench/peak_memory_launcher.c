/* Runs a command and writes its peak resident memory (kB) and its CPU time (user + system,
 * seconds), both from wait4, to the file named first:
 *   quorvane_bench_launcher PEAKFILE COMMAND [ARGS...]
 * The whole-file benchmarks start their children through it because Linux carries the peak of
 * the address space a process leaves at exec() into its own peak: a child spawned straight from
 * the benchmark would report at least the benchmark's own memory. This launcher is small. */
#include <stdio.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
  if (argc < 3) return 125;
  const pid_t pid = fork();
  if (pid < 0) return 125;
  if (pid == 0) {
    execvp(argv[2], argv + 2);
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  if (wait4(pid, &status, 0, &usage) != pid) return 125;
  FILE* peak = fopen(argv[1], "w");
  if (!peak) return 125;
  fprintf(peak, "%ld %.6f\n", usage.ru_maxrss,
          (double)(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6);
  fclose(peak);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 126;
}
