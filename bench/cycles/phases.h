// SPDX-License-Identifier: Apache-2.0
// The phases of a cycle, told apart by the lines that the library logs when one is over.
#ifndef BENCH_PHASES_H
#define BENCH_PHASES_H

#include "figures.h"
#include "zot_conf.h"

// Directs a log control here.
void phases_listen_to(zot_log_ctl *ctl);

// Forgets what was counted.
void phases_begin(void);
// What has passed since the last line belongs to no phase.
void phases_resume(void);
// Prints a line for each phase, and one for what is left of the time that they took together.
void phases_print(const struct subject *subject, double together);

#endif
