// SPDX-License-Identifier: Apache-2.0
// Measures the peak resident memory of the process in each step. Also marks the steps in a trace of
// the system calls, by access() to a file that never exists.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "probe.h"

static void mark(const char *when, const char *step) {
  char path[128];
  snprintf(path, sizeof path, "/footprint/%s/%s", when, step);
  (void)access(path, F_OK);
}

_Noreturn static void fail(const char *what) {
  perror(what);
  exit(1);
}

// Resets the peak.
static void reset_peak(void) {
  FILE *const file = fopen("/proc/self/clear_refs", "we");
  if (file == NULL || fputs("5", file) == EOF || fclose(file) != 0) {
    fail("/proc/self/clear_refs");
  }
}

static long peak_kib(void) {
  FILE *const file = fopen("/proc/self/status", "re");
  if (file == NULL) {
    fail("/proc/self/status");
  }
  char line[256];
  long kib = -1;
  while (kib < 0 && fgets(line, sizeof line, file) != NULL) {
    if (sscanf(line, "VmHWM: %ld kB", &kib) != 1) {
      kib = -1;
    }
  }
  fclose(file);
  if (kib < 0) {
    fail("VmHWM");
  }
  return kib;
}

void probe_start(void) {
  printf("start.rss_kib %ld\n", peak_kib());
}

void probe_run(const char *step, void (*run)(void *argument), void *argument) {
  reset_peak();
  mark("begin", step);
  run(argument);
  mark("end", step);
  printf("%s.rss_kib %ld\n", step, peak_kib());
}
