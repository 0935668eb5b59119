/* Runs a command and tells what it took: "measured SECONDS KILOBYTES", processor time and the most
 * memory at a time, as a last line on standard error. Its own process is small: a child begins with the
 * peak of whoever started it, and an interpreter's would hide what small programs take.
 *
 *   measure COMMAND [ARGUMENT...] */
#define _DEFAULT_SOURCE
#include <stdio.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

static double seconds(struct timeval time) {
  return (double)time.tv_sec + 1e-6 * (double)time.tv_usec;
}

int main(int count, char** words) {
  if (count < 2) return 2;
  const pid_t child = fork();
  if (child == 0) {
    execvp(words[1], words + 1);
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  if (child < 0 || wait4(child, &status, 0, &usage) != child) return 1;
  fprintf(stderr, "\nmeasured %.6f %ld\n", seconds(usage.ru_utime) + seconds(usage.ru_stime),
          usage.ru_maxrss);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
