// SPDX-License-Identifier: Apache-2.0
// The phases of a cycle, delimited by the lines that the library logs at the end of each.
#ifndef BENCH_PHASES_H
#define BENCH_PHASES_H

#include "figures.h"
#include "zot_conf.h"

// Directs a log control to this module.
void phases_listen_to(zot_log_ctl *ctl);

// Resets the times.
void phases_begin(void);
// The time since the last log line belongs to no phase.
void phases_resume(void);
// Prints a line for each phase, and one for the rest of the total time.
void phases_print(const struct subject *subject, double together);

#endif
