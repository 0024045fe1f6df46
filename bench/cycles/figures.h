// SPDX-License-Identifier: Apache-2.0
// What is measured of a step, and the lines that tell it. Each line is a JSON object. What all
// lines of a run have in common comes from the environment: BENCH_FILES and BENCH_SIZE of the
// configuration, BENCH_MEDIUM that holds the element's folders, and BENCH_ROUND.
#ifndef BENCH_FIGURES_H
#define BENCH_FIGURES_H

struct figures {
  double wall;                 // seconds
  double cpu;                  // seconds, of this process and of the children that it waited for
  unsigned long long written;  // bytes handed to write(), by the same processes
};

// Whose figures a line tells, and of what.
struct subject {
  const char *who;
  const char *step;
};

double wall_now(void);
// All figures of the process so far; its wall time counts from an arbitrary moment.
struct figures figures_now(void);
struct figures figures_since(const struct figures *begin);
void figures_add(struct figures *sum, const struct figures *more);
// What the process had taken by the time of this call, at its very begin. BENCH_BEGIN tells the
// second at which it was started; without it the wall time is 0.
struct figures figures_of_start(void);

// Lets the peak begin anew.
void peak_begin(void);
// Resident memory, in KiB, of the largest process since then.
long peak_kib(void);

void print_figures(const struct subject *subject, const char *part, const struct figures *figures,
                   long peak);
void print_wall(const struct subject *subject, const char *part, double wall);
void print_phase(const struct subject *subject, const char *phase, double wall);

// Says on standard error what the system call refused, and ends the program.
_Noreturn void fail_with_errno(const char *what);

#endif
