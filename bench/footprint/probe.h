// SPDX-License-Identifier: Apache-2.0
// Measures each step of a run; one program measures the heap, the other the process.
#ifndef FOOTPRINT_PROBE_H
#define FOOTPRINT_PROBE_H

// Size of each published file, as in measure.sh.
enum { FOOTPRINT_FILE_SIZE = 4096 };

// Call it before the first use of the library.
void probe_start(void);
// Runs a step and prints lines "NAME VALUE" for it.
void probe_run(const char *step, void (*run)(void *argument), void *argument);

#endif
