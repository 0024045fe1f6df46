// SPDX-License-Identifier: Apache-2.0
#include "figures.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <time.h>

static long children_peak_at_begin;

_Noreturn void fail_with_errno(const char *what) {
  perror(what);
  exit(1);
}

static double clock_now(clockid_t clock) {
  struct timespec time;
  if (clock_gettime(clock, &time) != 0) {
    fail_with_errno("clock_gettime");
  }
  return (double)time.tv_sec + (double)time.tv_nsec * 1e-9;
}

double wall_now(void) {
  return clock_now(CLOCK_MONOTONIC);
}

static struct rusage usage_of(int who) {
  struct rusage usage;
  if (getrusage(who, &usage) != 0) {
    fail_with_errno("getrusage");
  }
  return usage;
}

static double seconds(const struct timeval *time) {
  return (double)time->tv_sec + (double)time->tv_usec * 1e-6;
}

static double cpu_of(int who) {
  const struct rusage usage = usage_of(who);
  return seconds(&usage.ru_utime) + seconds(&usage.ru_stime);
}

// The number after a name in a file of /proc with one name per line.
static unsigned long long proc_value(const char *path, const char *format) {
  FILE *const file = fopen(path, "re");
  if (file == NULL) {
    fail_with_errno(path);
  }
  char line[256];
  unsigned long long value = 0;
  int found = 0;
  while (!found && fgets(line, sizeof line, file) != NULL) {
    found = sscanf(line, format, &value) == 1;
  }
  fclose(file);
  if (!found) {
    fprintf(stderr, "%s has no %s\n", path, format);
    exit(1);
  }
  return value;
}

struct figures figures_now(void) {
  const unsigned long long written = proc_value("/proc/self/io", "wchar: %llu");
  const double cpu = cpu_of(RUSAGE_SELF) + cpu_of(RUSAGE_CHILDREN);
  return (struct figures){wall_now(), cpu, written};
}

struct figures figures_since(const struct figures *begin) {
  // The time comes first, so that reading the other figures is not measured.
  const double wall = wall_now() - begin->wall;
  const struct figures end = figures_now();
  return (struct figures){wall, end.cpu - begin->cpu, end.written - begin->written};
}

void figures_add(struct figures *sum, const struct figures *more) {
  sum->wall += more->wall;
  sum->cpu += more->cpu;
  sum->written += more->written;
}

struct figures figures_of_start(void) {
  const char *const begin = getenv("BENCH_BEGIN");
  const double wall = begin != NULL ? clock_now(CLOCK_REALTIME) - strtod(begin, NULL) : 0;
  return (struct figures){wall, cpu_of(RUSAGE_SELF), 0};
}

void peak_begin(void) {
  FILE *const file = fopen("/proc/self/clear_refs", "we");
  if (file == NULL || fputs("5", file) == EOF || fclose(file) != 0) {
    fail_with_errno("/proc/self/clear_refs");
  }
  children_peak_at_begin = usage_of(RUSAGE_CHILDREN).ru_maxrss;
}

// If the peak of the children has not risen, it is from before peak_begin().
long peak_kib(void) {
  const long own = (long)proc_value("/proc/self/status", "VmHWM: %llu kB");
  const long children = usage_of(RUSAGE_CHILDREN).ru_maxrss;
  return children > children_peak_at_begin && children > own ? children : own;
}

static const char *from_environment(const char *name) {
  const char *const value = getenv(name);
  if (value == NULL || value[0] == '\0') {
    fprintf(stderr, "%s is not set\n", name);
    exit(1);
  }
  return value;
}

static void print_begin(const struct subject *subject, const char *kind, const char *name) {
  printf("{\"who\":\"%s\",\"step\":\"%s\",\"%s\":\"%s\"", subject->who, subject->step, kind, name);
  printf(",\"files\":%s,\"size\":%s", from_environment("BENCH_FILES"),
         from_environment("BENCH_SIZE"));
  printf(",\"medium\":\"%s\",\"round\":%s", from_environment("BENCH_MEDIUM"),
         from_environment("BENCH_ROUND"));
}

void print_figures(const struct subject *subject, const char *part, const struct figures *figures,
                   long peak) {
  print_begin(subject, "part", part);
  printf(",\"wall\":%.9f,\"cpu\":%.6f,\"peak_kib\":%ld,\"written\":%llu}\n", figures->wall,
         figures->cpu, peak, figures->written);
}

void print_wall(const struct subject *subject, const char *part, double wall) {
  print_begin(subject, "part", part);
  printf(",\"wall\":%.9f}\n", wall);
}

void print_phase(const struct subject *subject, const char *phase, double wall) {
  print_begin(subject, "phase", phase);
  printf(",\"wall\":%.9f}\n", wall);
}
