/* SPDX-License-Identifier: Apache-2.0 */
/* A service process in C that uses only the public header. It gets the configuration that a service
 * publishes, commits it, gets it again and frees everything. The environment names the service and
 * the directories; the argument is the number of published files. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zot_conf.h>

#define INDEX "001122334455"

static int failures = 0;

static void check(bool holds, const char *what) {
  if (!holds) {
    fprintf(stderr, "c_client: does not hold: %s\n", what);
    failures++;
  }
}

static bool is_whole(const zot_ret_data *entry, uint32_t stat) {
  return entry->stat == stat && entry->data != NULL && entry->size > 0 && entry->key[0] != '\0' &&
         zot_util_cat2str(entry->category) != NULL;
}

/* The number of entries that have bytes, a name and the expected change mark. */
static long count_whole(const zot_list *entries, uint32_t stat) {
  long count = 0;
  ZOT_FOR_EACH_RET_DATA(entry, entries) {
    count += is_whole(entry, stat) ? 1 : 0;
  }
  return count;
}

static long count_all(const zot_list *entries) {
  long count = 0;
  for (const zot_list *node = entries->next; node != entries; node = node->next) {
    count++;
  }
  return count;
}

static zot_list *get_everything(zot_ctx *handle, uint32_t stat, long published) {
  const uint32_t all_changes =
      ZOT_STAT_UNCHANGED | ZOT_STAT_DELETED | ZOT_STAT_ADDED | ZOT_STAT_MODIFIED;
  zot_catset categories = {{0}};
  zot_list *entries = NULL;
  check(zot_catset_set_all(&categories) == ZOT_OK, "the set takes every category");
  const int status = zot_conf_get(handle, categories, all_changes, &entries);
  check(status == ZOT_OK, "get succeeds");
  check(status == zot_util_get_err(handle), "the handle keeps the status");
  if (entries == NULL) {
    fprintf(stderr, "c_client: %s\n", zot_util_get_err_str(handle));
    check(false, "get returns a list");
    return NULL;
  }
  check(count_all(entries) == published, "the list has an entry for each published file");
  check(count_whole(entries, stat) == published, "each entry is whole and marked as expected");
  return entries;
}

static void free_entries(zot_ctx *handle, zot_list *entries) {
  if (entries != NULL) {
    check(zot_conf_free_ret_data(handle, &entries) == ZOT_OK, "the list is freed");
    check(entries == NULL, "the pointer to the freed list is cleared");
  }
}

static void commit_the_new_configuration(zot_ctx *handle, long published) {
  zot_list *entries = get_everything(handle, ZOT_STAT_ADDED, published);
  check((handle->stat.state & ZOT_CYCLE_NEW_CONF) != 0, "the first get brings something new");
  check(zot_util_is_new_conf(handle), "a new configuration waits");
  check(zot_conf_commit(handle) == ZOT_OK, "commit succeeds");
  check((handle->stat.state & ZOT_CYCLE_DONE_COMMIT) != 0, "the cycle is marked as committed");
  check(!zot_util_is_new_conf(handle), "nothing waits after the commit");
  free_entries(handle, entries);
}

static void find_nothing_new(zot_ctx *handle, long published) {
  zot_k_meta meta;
  zot_list *entries = get_everything(handle, ZOT_STAT_UNCHANGED, published);
  check((handle->stat.state & ZOT_CYCLE_SAME_K) != 0, "the second get brings nothing new");
  check(zot_conf_commit(handle) == ZOT_NO_UPDATE, "there is nothing to commit");
  check(zot_util_get_k_meta(handle, &meta, ZOT_K_CURRENT) == ZOT_OK, "the metadata can be read");
  check(strlen(meta.cluster_id) == ZOT_UUID_LEN, "the cluster ID is a UUID");
  free_entries(handle, entries);
}

int main(int argc, char **argv) {
  const long published = argc == 2 ? strtol(argv[1], NULL, 10) : 0;
  if (published <= 0) {
    fprintf(stderr, "usage: c_client NUMBER_OF_PUBLISHED_FILES\n");
    return 2;
  }
  zot_ctx *handle = zot_conf_init(INDEX, strlen(INDEX));
  if (handle == NULL) {
    fprintf(stderr, "c_client: no handle\n");
    return 1;
  }
  check(strcmp(zot_util_get_sub_idx(handle), INDEX) == 0, "the handle knows its index");
  commit_the_new_configuration(handle, published);
  find_nothing_new(handle, published);
  check(zot_conf_free(handle) == ZOT_OK, "the handle is freed");
  printf("c_client: %ld files, %d failures\n", published, failures);
  return failures == 0 ? 0 : 1;
}
