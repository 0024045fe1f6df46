// SPDX-License-Identifier: Apache-2.0
// usage: bench_measure WHO STEP -- COMMAND…
// Runs a command, which must succeed, and prints the figures of all its processes in one line.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "figures.h"

static int exit_status_of(char **command) {
  const pid_t child = fork();
  if (child < 0) {
    fail_with_errno("fork");
  }
  if (child == 0) {
    execvp(command[0], command);
    perror(command[0]);
    _exit(127);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) {
    fail_with_errno("waitpid");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int main(int argc, char **argv) {
  if (argc < 5 || strcmp(argv[3], "--") != 0) {
    fprintf(stderr, "usage: %s WHO STEP -- COMMAND...\n", argv[0]);
    return 2;
  }
  const struct subject subject = {argv[1], argv[2]};
  peak_begin();
  const struct figures begin = figures_now();
  const int status = exit_status_of(argv + 4);
  const struct figures figures = figures_since(&begin);
  if (status != 0) {
    fprintf(stderr, "%s %s: exit status %d\n", subject.who, subject.step, status);
    return 1;
  }
  print_figures(&subject, "whole", &figures, peak_kib());
  return 0;
}
