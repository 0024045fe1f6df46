// SPDX-License-Identifier: Apache-2.0
// Delivery of a formatted message. Each function returns 0, or -1 if the text was not delivered.
#pragma once

#include "zot_conf.h"

// Sends a text to the destination that the control of the log context names.
int zot_log_deliver(zot_log_ctx *log_ctx, const zot_log_site &site, const char *text);

int zot_log_dst_syslog(uint32_t level, const char *text);
int zot_log_dst_fp(FILE *stream, const char *text);

// Keeps the opened stream in the log context. Without a log context the stream is closed at once.
int zot_log_dst_path(zot_log_ctx *log_ctx, const char *path, const char *text);

int zot_log_dst_cb_func(zot_log_ctx *log_ctx, zot_log_cb *cb, void *cb_arg, const char *text);
