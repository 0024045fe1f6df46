/* SPDX-License-Identifier: Apache-2.0 */
/* A shell that kills the process which has it copy the files of a commit, and otherwise is
 * busybox's. */
#define _POSIX_C_SOURCE 200809L

#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

int main(int count, char **arguments) {
  char *command[] = {"busybox", "sh", "-c", arguments[count - 1], NULL};
  if (strncmp(command[3], "exec cp ", strlen("exec cp ")) == 0) {
    kill(getppid(), SIGKILL);
    return 0;
  }
  execv("/bin/busybox", command);
  perror("/bin/busybox");
  return 127;
}
