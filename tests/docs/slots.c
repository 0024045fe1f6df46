// SPDX-License-Identifier: Apache-2.0
// usage: slots STEP…
// Runs the steps "get", "commit", "roll-back" and "publish X" on one handle and prints after each
// what the four slots hold. A K (knowledge file) is printed as the last character of its config ID
// and a number, a list as "list" and a number; equal numbers mean the same record. The counts of
// the marks and the place of the marked files follow.
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zot_conf.h>

static int get(zot_ctx *handle) {
  zot_catset wanted = {{0}};
  zot_list *entries = NULL;
  zot_catset_set_all(&wanted);
  const int status = zot_conf_get(handle, wanted, ZOT_STAT_FULL, &entries);
  if (entries != NULL) {
    zot_conf_free_ret_data(handle, &entries);
  }
  return status;
}

// The number of the first slot that holds a record, counted from 1.
static int k_number(const zot_ctx *handle, const zot_k *k) {
  int slot = 0;
  while (handle->slot[slot].k != k) {
    ++slot;
  }
  return slot + 1;
}

static int list_number(const zot_ctx *handle, const zot_list *list) {
  int slot = 0;
  while (handle->slot[slot].gpbs != list) {
    ++slot;
  }
  return slot + 1;
}

static void print_slots(const zot_ctx *handle) {
  for (int slot = 0; slot < ZOT_SLOT_COUNT; ++slot) {
    const zot_k *const k = handle->slot[slot].k;
    const zot_list *const list = handle->slot[slot].gpbs;
    if (k != NULL) {
      printf(" %c%d", k->meta.config_id[ZOT_UUID_LEN - 1], k_number(handle, k));
    } else {
      printf(" -");
    }
    if (list != NULL) {
      printf("/list%d", list_number(handle, list));
    }
  }
}

static int count_marks(const zot_ctx *handle, uint32_t mark) {
  int count = 0;
  const zot_list *const head = handle->ret.list;
  for (const zot_list *node = head != NULL ? head->next : NULL; node != head; node = node->next) {
    count += ((const zot_gpb *)((const char *)node - offsetof(zot_gpb, node)))->stat == mark;
  }
  return count;
}

static void print_marks(const zot_ctx *handle) {
  const char *const place = strstr(handle->ret.root, "/writable/") != NULL ? "cache" : "scratch";
  printf(" | added %d modified %d deleted %d unchanged %d, %s\n",
         count_marks(handle, ZOT_STAT_ADDED), count_marks(handle, ZOT_STAT_MODIFIED),
         count_marks(handle, ZOT_STAT_DELETED), count_marks(handle, ZOT_STAT_UNCHANGED), place);
}

static int run_step(zot_ctx *handle, const char *step) {
  if (strncmp(step, "publish ", 8) == 0) {
    return system(step);
  }
  int status = 0;
  if (strcmp(step, "commit") == 0) {
    status = zot_conf_commit(handle);
  } else if (strcmp(step, "roll-back") == 0) {
    status = zot_conf_roll_back(handle);
  } else {
    status = get(handle);
  }
  printf("%s %d:", step, status);
  print_slots(handle);
  print_marks(handle);
  return 0;
}

int main(int argc, char **argv) {
  zot_parm_all parm;
  memset(&parm, 0, sizeof parm);
  zot_util_init_conf_parm(&parm);
  zot_util_set_log_ctl_dst_path(&parm.log_ctl, "/dev/null");
  zot_ctx *const handle = zot_conf_init_args("AP", "001122334455", 12, parm);
  if (handle == NULL) {
    return 1;
  }
  int failed = 0;
  for (int step = 1; step < argc && failed == 0; ++step) {
    failed = run_step(handle, argv[step]);
  }
  zot_conf_free(handle);
  return failed == 0 ? 0 : 1;
}
