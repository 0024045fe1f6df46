// SPDX-License-Identifier: Apache-2.0
// The parameter record of a handle: made with the handle, released with it.
#pragma once

#include "zot_conf.h"

// Gives a handle its parameter record, all zero, and points the handle's log at the log control in
// it. Returns ZOT_OK or ZOT_ERR_NOMEM, recorded.
int zot_priv_parm_new(zot_ctx *handle);

// Releases the record with its copy of the log path. The log stream is closed by zot_log_free().
void zot_priv_parm_free(zot_ctx *handle);
