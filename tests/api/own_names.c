/* SPDX-License-Identifier: Apache-2.0 */
/* A client that defines a function of its own for every plain name of the library, each different
 * from the library's. It runs a cycle, in which the library must call its own functions and never
 * these. The file is compiled as C and, through own_names.cpp, as C++. The argument is the number
 * of published files. */
#define ZOT_CONF_CLIENT
#include <stdio.h>
#include <stdlib.h>
#include <zot_conf.h>

/* clang-format off */
#define PLAIN_NAMES(X) \
  X(ap_download_gpb) X(ap_download_k) X(calc_sha256) X(chk_and_mkdir) X(cmd_helper_system) \
  X(cmp_file_sha256) X(cmp_int) X(cmp_uint64) X(fcopy) X(fcopy_stat) X(free_file_mmap) \
  X(get_cat_str_by_gpb_cat) X(get_file_type) X(get_gpb_cat_by_cat_str) X(get_gpb_meta_by_path) \
  X(get_gpb_meta_str) X(get_json_item) X(get_remote_file) X(get_remote_file_set) \
  X(get_remote_file_set_stat) X(get_remote_file_stat) X(get_subsys_str_by_enum) X(list_add_tail) \
  X(list_del) X(mkdir_r) X(print_cjson) X(read_file) X(read_file_mmap) X(read_line) X(rm_rf) \
  X(sha256_hash_str) X(str2upper) X(write_file)
/* clang-format on */

#ifdef __cplusplus
extern "C" {
#endif

static int calls;

#define DECLARED(name) int name(void);
#define DEFINED(name) \
  int name(void) {    \
    return ++calls;   \
  }
PLAIN_NAMES(DECLARED)
PLAIN_NAMES(DEFINED)

#ifdef __cplusplus
}
#endif

static int failures;

static void check(bool holds, const char *what) {
  if (!holds) {
    fprintf(stderr, "own_names: does not hold: %s\n", what);
    failures++;
  }
}

/* The number of entries that one request returns, each with bytes. */
static long get(zot_ctx *handle, uint32_t wanted) {
  zot_catset all = {{0}};
  zot_list *entries = NULL;
  long count = 0;
  zot_catset_set_all(&all);
  check(zot_conf_get(handle, all, wanted, &entries) == ZOT_OK, zot_util_get_err_str(handle));
  ZOT_FOR_EACH_RET_DATA(entry, entries) {
    count += entry->data != NULL && entry->size > 0 ? 1 : 0;
  }
  if (entries != NULL) {
    zot_conf_free_ret_data(handle, &entries);
  }
  return count;
}

static void run_cycle(zot_ctx *handle, long published) {
  zot_core_stat stat = {0, 0, 0, 0};
  check(!zot_util_is_new_conf(handle), "nothing waits before the first get");
  check(get(handle, ZOT_STAT_FULL) == published, "the get brings every file");
  check(zot_util_is_new_conf(handle), "a new configuration waits");
  check(zot_util_get_conf_stat(handle, &stat) == ZOT_OK, "the statistics can be asked for");
  check(stat.bytes_written > 0, "the get wrote what it fetched");
  check(zot_conf_commit(handle) == ZOT_OK, zot_util_get_err_str(handle));
  check(!zot_util_is_new_conf(handle), "nothing waits after the commit");
  check(get(handle, ZOT_STAT_CACHED) == published, "the cache has every file");
}

int main(int argc, char **argv) {
  const long published = argc == 2 ? strtol(argv[1], NULL, 10) : 0;
  zot_ctx *handle = zot_conf_init("001122334455", 12);
  if (handle == NULL || published <= 0) {
    fprintf(stderr, "usage: own_names NUMBER_OF_PUBLISHED_FILES\n");
    return 2;
  }
  run_cycle(handle, published);
  zot_conf_free(handle);
  /* Another process of the element starts with what this process has committed. */
  handle = zot_conf_init("001122334455", 12);
  check(handle != NULL && get(handle, ZOT_STAT_CACHED) == published, "a restart has every file");
  zot_conf_free(handle);
  check(calls == 0, "the library calls no function of the client");
  const int before = calls;
  int expected = 0;
#define CALLED(name) \
  expected++;        \
  check(name() == before + expected, "the client calls its own " #name);
  PLAIN_NAMES(CALLED)
  printf("own_names: %ld files, %d failures\n", published, failures);
  return failures == 0 ? 0 : 1;
}
