// SPDX-License-Identifier: Apache-2.0
#include "element.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

void element_fail(const char *format, ...) {
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fputc('\n', stderr);
  exit(1);
}

static void expect_success(const struct element *element, const char *call, int status) {
  if (status != ZOT_OK) {
    element_fail("%s: %d: %s", call, status, zot_util_get_err_str(element->handle));
  }
}

void element_begin(struct element *element, zot_ctx *handle) {
  element->handle = handle;
  if (handle == NULL) {
    element_fail("no handle");
  }
}

void element_get(struct element *element, uint32_t request) {
  zot_catset wanted = {{0}};
  zot_catset_set_all(&wanted);
  expect_success(element, "get", zot_conf_get(element->handle, wanted, request, &element->entries));
}

void element_get_new(struct element *element) {
  element_get(element, ZOT_STAT_ADDED | ZOT_STAT_MODIFIED | ZOT_STAT_DELETED);
}

unsigned long element_count_entries(const struct element *element, size_t size) {
  unsigned long entries = 0;
  for (zot_list *node = element->entries->next; node != element->entries; node = node->next) {
    const zot_ret_data *entry = (const zot_ret_data *)node;
    if (entry->size != size || memchr(entry->data, 0, 1) != NULL) {
      element_fail("%s: differs from the publication", entry->key);
    }
    ++entries;
  }
  return entries;
}

void element_commit(struct element *element) {
  expect_success(element, "commit", zot_conf_commit(element->handle));
  zot_conf_free_ret_data(element->handle, &element->entries);
}

// Without an update, there is a returned list, and it is empty.
void element_poll(struct element *element) {
  element_get_new(element);
  if ((element->handle->stat.state & ZOT_CYCLE_SAME_K) == 0 ||
      !zot_list_is_empty(element->entries)) {
    element_fail("poll: unexpected update: %s", zot_util_get_err_str(element->handle));
  }
  zot_conf_free_ret_data(element->handle, &element->entries);
}

void element_end(struct element *element) {
  zot_conf_free(element->handle);
  element->handle = NULL;
}
