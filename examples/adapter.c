/* SPDX-License-Identifier: Apache-2.0 */
/* An adapter: the configuration comes from a mirror, a publication folder on a disk, and not from
 * the service. The program replaces the operations of the handle before its first get. The
 * library's own operations verify the files that the replacements copy.
 * usage: adapter INDEX MIRROR */
#include <libgen.h>
#include <stdio.h>
#include <string.h>
#include <zot_conf.h>

static const char *mirror;

/* Copies a file and creates the directories above it. */
static int bring(zot_ctx *handle, const char *from, const char *to) {
  char parent[2 * ZOT_PATH_SIZE];
  snprintf(parent, sizeof parent, "%s", to);
  if (mkdir_r(dirname(parent)) != 0) {
    return zot_priv_err_set_err_str2(handle, ZOT_ERR_GENERIC, __func__, __LINE__, "cannot make %s",
                                     parent);
  }
  return zot_priv_fcopy(handle, from, to, __func__, __LINE__);
}

static int bring_k(zot_ctx *handle, const char *kind) {
  const char *element = handle->sub_data.name;
  char from[2 * ZOT_PATH_SIZE];
  char to[2 * ZOT_PATH_SIZE];
  snprintf(from, sizeof from, "%s/file/knowledge/%s/%s/latest/%s.%s", mirror, handle->subsys_id,
           element, element, kind);
  snprintf(to, sizeof to, "%s/subsys.%s", handle->tmp_root, kind);
  return bring(handle, from, to);
}

static int mirror_download_k(zot_ctx *handle, zot_k *k) {
  int status = bring_k(handle, "checksum");
  if (status == ZOT_OK) {
    status = bring_k(handle, "k");
  }
  if (status == ZOT_OK) {
    status = zot_priv_read_tmp_k(handle, k, handle->tmp_root);
  }
  if (status == ZOT_OK && zot_priv_k_set_root(k, handle->tmp_root) == NULL) {
    status = zot_priv_err_set_errno(handle, ZOT_ERR_NOMEM);
  }
  if (status != ZOT_OK) {
    return status;
  }
  if (zot_priv_cmp_k(k, zot_priv_get_k(handle, ZOT_SLOT_CORRUPTED)) == 0) {
    return ZOT_ERR_SAME_AS_CORRUPTED;
  }
  const zot_k *current = zot_priv_get_k(handle, ZOT_SLOT_CURRENT);
  return zot_priv_cmp_k(k, current) == 0 ? ZOT_NO_UPDATE : ZOT_OK;
}

/* Copies every file of a list, from and to a "config" directory. */
static int bring_all(zot_ctx *handle, zot_list *gpbs, const char *from_root, const char *to_root) {
  for (zot_list *node = gpbs->next; node != gpbs; node = node->next) {
    const zot_gpb *gpb = (const zot_gpb *)((const char *)node - offsetof(zot_gpb, node));
    char from[2 * ZOT_PATH_SIZE];
    char to[2 * ZOT_PATH_SIZE];
    snprintf(from, sizeof from, "%s/%s", from_root, gpb->path);
    snprintf(to, sizeof to, "%s/%s", to_root, gpb->path);
    const int status = bring(handle, from, to);
    if (status != ZOT_OK) {
      return status;
    }
  }
  return ZOT_OK;
}

static int mirror_download_gpb(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  char files[ZOT_PATH_SIZE];
  snprintf(files, sizeof files, "%s/config", mirror);
  const int status = bring_all(handle, gpbs, files, handle->tmp_gpb_root);
  return status != ZOT_OK ? status : zot_priv_read_gpb(handle, k, gpbs, handle->tmp_root);
}

/* Creates the new files beside the old ones and then replaces the whole directory. */
static int mirror_commit_gpb(zot_ctx *handle, const char *tmp_gpb_root, zot_list *gpbs) {
  char cached[ZOT_PATH_SIZE + 32];
  char next[ZOT_PATH_SIZE + 32];
  snprintf(cached, sizeof cached, "%s/config", handle->conf_root);
  snprintf(next, sizeof next, "%s/config.next", handle->conf_root);
  rm_rf(next);
  const int status = mkdir_r(next) == 0 ? bring_all(handle, gpbs, tmp_gpb_root, next) : -1;
  if (status != ZOT_OK || rm_rf(cached) != 0 || rename(next, cached) != 0) {
    return zot_priv_err_set_err_str2(handle, ZOT_ERR_GENERIC, __func__, __LINE__,
                                     "cannot replace %s", cached);
  }
  return ZOT_OK;
}

int main(int argc, char **argv) {
  zot_ctx *handle = argc == 3 ? zot_conf_init(argv[1], strlen(argv[1])) : NULL;
  if (handle == NULL) {
    fprintf(stderr, "usage: adapter INDEX MIRROR\n");
    return 2;
  }
  mirror = argv[2];
  handle->fns.download_k = mirror_download_k;
  handle->fns.download_gpb = mirror_download_gpb;
  handle->fns.commit_gpb = mirror_commit_gpb;
  zot_catset wanted = {{0}};
  zot_list *entries = NULL;
  zot_catset_set_all(&wanted);
  int status = zot_conf_get(handle, wanted, ZOT_STAT_FULL, &entries);
  const bool is_new = zot_util_is_new_conf(handle);
  if (status == ZOT_OK && is_new) {
    status = zot_conf_commit(handle);
  }
  printf("%s configuration: %s\n", is_new ? "new" : "no new",
         zot_util_is_err(status) ? zot_util_get_err_str(handle) : "no error");
  if (entries != NULL) {
    zot_conf_free_ret_data(handle, &entries);
  }
  zot_conf_free(handle);
  return zot_util_is_err(status) ? 1 : 0;
}
