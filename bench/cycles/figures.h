// SPDX-License-Identifier: Apache-2.0
// The figures of a step, and the lines that report them. Each line is a JSON object. The common
// part of all lines of a run comes from the environment: BENCH_FILES and BENCH_SIZE of the
// configuration, BENCH_MEDIUM with the element's folders, and BENCH_ROUND.
#ifndef BENCH_FIGURES_H
#define BENCH_FIGURES_H

struct figures {
  double wall;                 // seconds
  double cpu;                  // seconds, of this process and of the children that it waited for
  unsigned long long written;  // bytes passed to write(), by the same processes
};

// The contender and the step of a line.
struct subject {
  const char *who;
  const char *step;
};

double wall_now(void);
// All figures of the process so far; its wall time counts from an arbitrary moment.
struct figures figures_now(void);
struct figures figures_since(const struct figures *begin);
void figures_add(struct figures *sum, const struct figures *more);
// Figures of the process from its start to this call, which comes first in the program. BENCH_BEGIN
// is the start time in seconds; without it, the wall time is 0.
struct figures figures_of_start(void);

// Resets the peak.
void peak_begin(void);
// Resident memory, in KiB, of the largest process since then.
long peak_kib(void);

void print_figures(const struct subject *subject, const char *part, const struct figures *figures,
                   long peak);
void print_wall(const struct subject *subject, const char *part, double wall);
void print_phase(const struct subject *subject, const char *phase, double wall);

// Prints the error of a system call on standard error and ends the program.
_Noreturn void fail_with_errno(const char *what);

#endif
