// SPDX-License-Identifier: Apache-2.0
// What is measured around each step of a run; one program counts the heap, the other the process.
#ifndef FOOTPRINT_PROBE_H
#define FOOTPRINT_PROBE_H

// Size of each published file; measure.sh publishes such files.
enum { FOOTPRINT_FILE_SIZE = 4096 };

// Before the library is used for the first time.
void probe_start(void);
// Runs a step and prints lines "NAME VALUE" for it.
void probe_run(const char *step, void (*run)(void *argument), void *argument);

#endif
