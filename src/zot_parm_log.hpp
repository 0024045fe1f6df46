// SPDX-License-Identifier: Apache-2.0
// The setters of the log parameters. Each records its own status.
#pragma once

#include "zot_conf.h"

namespace zot {

int zot_parm_set_log_destination(zot_ctx *handle, const void *val, size_t val_len);
int zot_parm_set_log_destination_fp(zot_ctx *handle, const void *val, size_t val_len);
int zot_parm_set_log_destination_path(zot_ctx *handle, const void *val, size_t val_len);
int zot_parm_set_log_destination_cb_func(zot_ctx *handle, const void *val, size_t val_len);
int zot_parm_set_log_level(zot_ctx *handle, const void *val, size_t val_len);
int zot_parm_set_log_facility(zot_ctx *handle, const void *val, size_t val_len);
int zot_parm_set_log_option(zot_ctx *handle, const void *val, size_t val_len);
int zot_parm_set_log_ctl(zot_ctx *handle, const void *val, size_t val_len);

// Frees the path copy that the log control of a handle holds.
void free_log_path(zot_log_ctl &ctl);

}  // namespace zot
