// SPDX-License-Identifier: Apache-2.0
// One configuration cycle: get the changes, apply them, commit.

// begin: cycle
#define ZOT_CONF_CLIENT  // declare what a client needs, and nothing else
#include <stdio.h>
#include <zot_conf.h>

int main(void) {
  zot_ctx *handle = zot_conf_init("001122334455", 12);
  if (handle == NULL) {
    return 1;  // standard error tells why
  }
  const uint32_t changed = ZOT_STAT_ADDED | ZOT_STAT_MODIFIED | ZOT_STAT_DELETED;
  zot_catset wanted = {{0}};
  zot_list *entries = NULL;
  zot_catset_set_all(&wanted);
  int status = zot_conf_get(handle, wanted, changed, &entries);
  if (status == ZOT_OK && zot_util_is_new_conf(handle)) {
    ZOT_FOR_EACH_RET_DATA(entry, entries) {  // apply the entry->size bytes at entry->data here
      printf("%s/%s %u\n", zot_util_cat2str(entry->category), entry->key, (unsigned)entry->size);
    }
    status = zot_conf_commit(handle);  // or zot_conf_roll_back() when it could not be applied
  }
  printf("%s\n", zot_util_get_err_str(handle));
  if (entries != NULL) {
    zot_conf_free_ret_data(handle, &entries);
  }
  zot_conf_free(handle);
  return zot_util_is_err(status) ? 1 : 0;
}
// end: cycle
