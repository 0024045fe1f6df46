/* SPDX-License-Identifier: Apache-2.0 */
/* What examples/cycle.c leaves out: an element that refuses what it gets, and one that starts with
 * what its cache holds. Prints a line "Category/key size" for each entry, and how the refusal
 * ended. usage: client roll-back | cached */
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
  for (const zot_list *node = entries->next; node != entries; node = node->next) {
    const zot_ret_data *entry = (const zot_ret_data *)node;
    printf("%s/%s %u\n", zot_util_cat2str(entry->category), entry->key, (unsigned)entry->size);
  }
  zot_conf_free_ret_data(handle, &entries);
  return status;
}

int main(int argc, char **argv) {
  const bool refuses = argc == 2 && strcmp(argv[1], "roll-back") == 0;
  if (!refuses && (argc != 2 || strcmp(argv[1], "cached") != 0)) {
    fprintf(stderr, "usage: client roll-back | cached\n");
    return 2;
  }
  zot_ctx *handle = zot_conf_init("001122334455", 12);
  if (handle == NULL) {
    return 1;
  }
  int status = get(
      handle, refuses ? ZOT_STAT_ADDED | ZOT_STAT_MODIFIED | ZOT_STAT_DELETED : ZOT_STAT_CACHED);
  if (refuses && status == ZOT_OK) {
    status = zot_conf_roll_back(handle);
  }
  if (refuses || status != ZOT_OK) {
    printf("%s\n", zot_util_get_err_str(handle));
  }
  zot_conf_free(handle);
  return status == ZOT_OK ? 0 : 1;
}
