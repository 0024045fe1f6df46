/* SPDX-License-Identifier: Apache-2.0 */
/* Covers what examples/cycle.c does not: an element that rolls back what it gets, one that starts
 * with the contents of its cache, and one that watches its transfers and may end them. Prints a
 * line "Category/key size" for each entry, and the result of everything except a cached start.
 * usage: client roll-back | cached | watched | ended */
#define ZOT_CONF_CLIENT
#include <stdio.h>
#include <string.h>
#include <zot_conf.h>

static int get(zot_ctx *handle, uint32_t wanted) {
  zot_catset categories = {{0}};
  zot_list *entries = NULL;
  zot_catset_set_all(&categories);
  const int status = zot_conf_get(handle, categories, wanted, &entries);
  if (entries == NULL) {
    return status;
  }
  ZOT_FOR_EACH_RET_DATA(entry, entries) {
    printf("%s/%s %u\n", zot_util_cat2str(entry->category), entry->key, (unsigned)entry->size);
  }
  zot_conf_free_ret_data(handle, &entries);
  return status;
}

struct watcher {
  int answer;
  unsigned calls;
};

static int watch(void *arg, uint64_t received) {
  struct watcher *watcher = arg;
  (void)received;
  ++watcher->calls;
  return watcher->answer;
}

static int get_watched(zot_ctx *handle, uint32_t wanted, int answer) {
  struct watcher watcher = {answer, 0};
  zot_util_watch_transfers(watch, &watcher);
  const int status = get(handle, wanted);
  zot_util_watch_transfers(NULL, NULL);
  printf("the watcher was %s\n", watcher.calls > 0 ? "called" : "not called");
  return status;
}

int main(int argc, char **argv) {
  const char *const mode = argc == 2 ? argv[1] : "";
  const bool is_cached = strcmp(mode, "cached") == 0;
  const bool is_watched = strcmp(mode, "watched") == 0;
  const bool is_ended = strcmp(mode, "ended") == 0;
  const bool refuses = strcmp(mode, "roll-back") == 0;
  if (!is_cached && !is_watched && !is_ended && !refuses) {
    fprintf(stderr, "usage: client roll-back | cached | watched | ended\n");
    return 2;
  }
  zot_ctx *handle = zot_conf_init("001122334455", 12);
  if (handle == NULL) {
    return 1;
  }
  const uint32_t changed = ZOT_STAT_ADDED | ZOT_STAT_MODIFIED | ZOT_STAT_DELETED;
  const uint32_t wanted = is_cached ? ZOT_STAT_CACHED : changed;
  int status = is_watched || is_ended ? get_watched(handle, wanted, is_ended) : get(handle, wanted);
  if (refuses && status == ZOT_OK) {
    status = zot_conf_roll_back(handle);
  }
  if (!is_cached || status != ZOT_OK) {
    printf("%s\n", zot_util_get_err_str(handle));
  }
  zot_conf_free(handle);
  return zot_util_is_err(status) ? 1 : 0;
}
