// SPDX-License-Identifier: Apache-2.0
// A caller's log control: its defaults, and where it sends messages.
#include "zot_conf.h"

void zot_util_init_log_ctl(zot_log_ctl *ctl) {
  if (ctl == nullptr) {
    return;
  }
  *ctl = zot_log_ctl{};
  ctl->facility = ZOT_TOPIC_DEFAULT;
  ctl->option = ZOT_LOG_OPT_FUNC;
  ctl->level = ZOT_LOG_WARN;
  ctl->dst = ZOT_LOG_DST_STDERR;
}

int zot_util_set_log_ctl_dst_fp(zot_log_ctl *ctl, FILE *stream) {
  if (ctl == nullptr || stream == nullptr) {
    return -1;
  }
  ctl->dst = ZOT_LOG_DST_FP;
  ctl->fp = stream;
  return 0;
}

int zot_util_set_log_ctl_dst_path(zot_log_ctl *ctl, const char *path) {
  if (ctl == nullptr || path == nullptr || *path == '\0') {
    return -1;
  }
  ctl->dst = ZOT_LOG_DST_PATH;
  ctl->path = path;
  return 0;
}

int zot_util_set_log_ctl_dst_cb_func(zot_log_ctl *ctl, zot_log_cb *cb, void *cb_arg) {
  if (ctl == nullptr || cb == nullptr) {
    return -1;
  }
  ctl->dst = ZOT_LOG_DST_CB_FUNC;
  ctl->cb = cb;
  ctl->cb_arg = cb_arg;
  return 0;
}

zot_log_site zot_util_log_cb_func_get_conf_stat(const zot_log_ctx *log_ctx) {
  return log_ctx != nullptr ? log_ctx->site : zot_log_site{};
}
