/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <string.h>
#include <zot_conf.h>

int main(void) {
  zot_ctx *handle = zot_conf_init("001122334455", 12);
  if (handle == NULL || strcmp(zot_util_get_sub_idx(handle), "001122334455") != 0) {
    fprintf(stderr, "consumer: no handle of that index\n");
    return 1;
  }
  return zot_conf_free(handle) == ZOT_OK ? 0 : 1;
}
