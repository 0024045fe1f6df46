// SPDX-License-Identifier: Apache-2.0
// The parameter record of a handle: created and freed with the handle.
#pragma once

#include "zot_conf.h"

// Creates the handle's parameter record, all zero, and lets the handle's log use the log control in
// it. Returns ZOT_OK, or ZOT_ERR_NOMEM, which is recorded.
int zot_priv_parm_new(zot_ctx *handle);

// Frees the record with its copy of the log path. zot_log_free() closes the log stream.
void zot_priv_parm_free(zot_ctx *handle);
