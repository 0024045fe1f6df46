// SPDX-License-Identifier: Apache-2.0
// An element that gets and commits configurations, and ends the program when a call has an
// unexpected result.
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

// Prints a message on standard error and ends the program.
_Noreturn void element_fail(const char *format, ...);

// Takes ownership of a handle; NULL ends the program.
void element_begin(struct element *element, zot_ctx *handle);
// A get with these request bits; must succeed.
void element_get(struct element *element, uint32_t request);
// A get of the changed entries; must succeed.
void element_get_new(struct element *element);
// Number of entries of the last get; each must have this size.
unsigned long element_count_entries(const struct element *element, size_t size);
// Commits and frees the returned list.
void element_commit(struct element *element);
// A get that must return no update and no entry.
void element_poll(struct element *element);
void element_end(struct element *element);

#endif
