// SPDX-License-Identifier: Apache-2.0
// Replaces a command on PATH: runs the real command, and writes "NAME KIB" with the peak resident
// memory of its largest process. A small parent must read the peak, because a command inherits the
// peak of the process that started it.
//
// Environment: FOOTPRINT_PATH, the PATH of the real command; FOOTPRINT_COMMANDS, the file to append
// to.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char **argv) {
  const char *const path = getenv("FOOTPRINT_PATH");
  const char *const record = getenv("FOOTPRINT_COMMANDS");
  if (argc < 1 || path == NULL || record == NULL) {
    return 126;
  }
  const char *const slash = strrchr(argv[0], '/');
  const char *const name = slash != NULL ? slash + 1 : argv[0];
  const pid_t child = fork();
  if (child == 0) {
    setenv("PATH", path, 1);
    execvp(name, argv);
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  FILE *const file = fopen(record, "ae");
  if (child < 0 || file == NULL || wait4(child, &status, 0, &usage) != child) {
    return 126;
  }
  fprintf(file, "%s %ld\n", name, usage.ru_maxrss);
  fclose(file);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 126;
}
