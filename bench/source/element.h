// SPDX-License-Identifier: Apache-2.0
// An element that gets and commits configurations, and ends the program when a call does not do
// what was expected of it.
#ifndef BENCH_ELEMENT_H
#define BENCH_ELEMENT_H

#include <stddef.h>
#include <stdint.h>

#include "zot_conf.h"

struct element {
  const char *index;
  zot_ctx *handle;
  zot_list *entries;
};

// Says on standard error what is wrong, and ends the program.
_Noreturn void element_fail(const char *format, ...);

// Takes over a handle; null ends the program.
void element_begin(struct element *element, zot_ctx *handle);
// A get with these request bits, which has to succeed.
void element_get(struct element *element, uint32_t request);
// A get of what changed, which has to succeed.
void element_get_new(struct element *element);
// How many entries the last get brought; each has to have so many bytes.
unsigned long element_count_entries(const struct element *element, size_t size);
// Commits, and gives the returned list back.
void element_commit(struct element *element);
// A get that has to bring no update and no entry.
void element_poll(struct element *element);
void element_end(struct element *element);

#endif
