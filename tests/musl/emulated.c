/* SPDX-License-Identifier: Apache-2.0 */
/* In a root for an element of another machine: each name in /bin is this program, which hands the
 * program of the same name in /emulated to the emulator. */
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { longest_name = 64, most_arguments = 64 };

int main(int count, char **arguments) {
  const char *const slash = strrchr(arguments[0], '/');
  const char *const name = slash != NULL ? slash + 1 : arguments[0];
  char path[sizeof "/emulated/" + longest_name];
  char *command[most_arguments + 4] = {"qemu-arm", "-0", arguments[0], path};
  if (count > most_arguments || strlen(name) > longest_name) {
    return 126;
  }
  snprintf(path, sizeof path, "/emulated/%s", name);
  memcpy(command + 4, arguments + 1, (size_t)count * sizeof *arguments);
  execv("/emulator/qemu-arm", command);
  perror("/emulator/qemu-arm");
  return 127;
}
