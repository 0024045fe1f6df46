/* SPDX-License-Identifier: Apache-2.0 */
/* The offset of each field in every public record. Programs that were built against an older header
 * rely on it. The first pair of figures is for 32-bit ARM, where pointers and long have four bytes
 * and 64-bit numbers are aligned to eight; the second pair is for 64-bit machines. */
#ifndef ZOT_TEST_RECORD_LAYOUT_H
#define ZOT_TEST_RECORD_LAYOUT_H

/* clang-format off */
/* RECORD(record, size32, size64) and, for each of its fields in order,
 * FIELD(record, field, offset32, size32, offset64, size64) */
#define ZOT_RECORD_LAYOUT(RECORD, FIELD) \
  RECORD(zot_list, 8, 16) \
  FIELD(zot_list, next, 0, 4, 0, 8) \
  FIELD(zot_list, prev, 4, 4, 8, 8) \
  RECORD(zot_catset, 128, 128) \
  FIELD(zot_catset, word, 0, 128, 0, 128) \
  RECORD(zot_log_site, 16, 24) \
  FIELD(zot_log_site, level, 0, 4, 0, 4) \
  FIELD(zot_log_site, mask, 4, 4, 4, 4) \
  FIELD(zot_log_site, line, 8, 4, 8, 8) \
  FIELD(zot_log_site, func, 12, 4, 16, 8) \
  RECORD(zot_log_ctl, 32, 48) \
  FIELD(zot_log_ctl, facility, 0, 4, 0, 4) \
  FIELD(zot_log_ctl, option, 4, 4, 4, 4) \
  FIELD(zot_log_ctl, level, 8, 4, 8, 4) \
  FIELD(zot_log_ctl, dst, 12, 4, 12, 4) \
  FIELD(zot_log_ctl, fp, 16, 4, 16, 8) \
  FIELD(zot_log_ctl, path, 20, 4, 24, 8) \
  FIELD(zot_log_ctl, cb, 24, 4, 32, 8) \
  FIELD(zot_log_ctl, cb_arg, 28, 4, 40, 8) \
  RECORD(zot_log_ctx, 24, 40) \
  FIELD(zot_log_ctx, ctl, 0, 4, 0, 8) \
  FIELD(zot_log_ctx, site, 4, 16, 8, 24) \
  FIELD(zot_log_ctx, path_fp, 20, 4, 32, 8) \
  RECORD(zot_log_cb_func, 8, 16) \
  FIELD(zot_log_cb_func, cb, 0, 4, 0, 8) \
  FIELD(zot_log_cb_func, cb_arg, 4, 4, 8, 8) \
  RECORD(zot_parm_all, 40, 56) \
  FIELD(zot_parm_all, timeout, 0, 4, 0, 4) \
  FIELD(zot_parm_all, timeout_gpb, 4, 4, 4, 4) \
  FIELD(zot_parm_all, log_ctl, 8, 32, 8, 48) \
  RECORD(zot_parm, 48, 72) \
  FIELD(zot_parm, handle, 0, 4, 0, 8) \
  FIELD(zot_parm, all, 4, 40, 8, 56) \
  FIELD(zot_parm, ret_proto_type, 44, 4, 64, 4) \
  RECORD(zot_core_stat, 24, 24) \
  FIELD(zot_core_stat, state, 0, 4, 0, 4) \
  FIELD(zot_core_stat, reserved, 4, 4, 4, 4) \
  FIELD(zot_core_stat, bytes_written, 8, 8, 8, 8) \
  FIELD(zot_core_stat, bytes_read, 16, 8, 16, 8) \
  RECORD(zot_k_meta, 586, 586) \
  FIELD(zot_k_meta, firmware_version, 0, 512, 0, 512) \
  FIELD(zot_k_meta, config_id, 512, 37, 512, 37) \
  FIELD(zot_k_meta, cluster_id, 549, 37, 549, 37) \
  RECORD(zot_k, 680, 704) \
  FIELD(zot_k, path, 0, 4, 0, 8) \
  FIELD(zot_k, data, 4, 4, 8, 8) \
  FIELD(zot_k, data_len, 8, 4, 16, 4) \
  FIELD(zot_k, checksum, 12, 65, 20, 65) \
  FIELD(zot_k, meta, 77, 586, 85, 586) \
  FIELD(zot_k, root, 664, 4, 672, 8) \
  FIELD(zot_k, json, 668, 4, 680, 8) \
  FIELD(zot_k, gpbs, 672, 4, 688, 8) \
  FIELD(zot_k, parsed, 676, 4, 696, 8) \
  RECORD(zot_gpb, 168, 192) \
  FIELD(zot_gpb, path, 0, 4, 0, 8) \
  FIELD(zot_gpb, content, 4, 4, 8, 8) \
  FIELD(zot_gpb, size, 8, 4, 16, 4) \
  FIELD(zot_gpb, checksum, 12, 65, 20, 65) \
  FIELD(zot_gpb, version, 80, 8, 88, 8) \
  FIELD(zot_gpb, category, 88, 4, 96, 4) \
  FIELD(zot_gpb, stat, 92, 4, 100, 4) \
  FIELD(zot_gpb, key_len, 96, 4, 104, 4) \
  FIELD(zot_gpb, key, 100, 53, 108, 53) \
  FIELD(zot_gpb, node, 156, 8, 168, 16) \
  FIELD(zot_gpb, verified, 164, 4, 184, 8) \
  RECORD(zot_ret_data, 80, 96) \
  FIELD(zot_ret_data, node, 0, 8, 0, 16) \
  FIELD(zot_ret_data, key, 8, 53, 16, 53) \
  FIELD(zot_ret_data, category, 64, 4, 72, 4) \
  FIELD(zot_ret_data, stat, 68, 4, 76, 4) \
  FIELD(zot_ret_data, data, 72, 4, 80, 8) \
  FIELD(zot_ret_data, size, 76, 4, 88, 4) \
  RECORD(zot_gpb_cmp, 8, 8) \
  FIELD(zot_gpb_cmp, result, 0, 4, 0, 4) \
  FIELD(zot_gpb_cmp, kind, 4, 4, 4, 4) \
  RECORD(zot_file_mem, 8, 16) \
  FIELD(zot_file_mem, data, 0, 4, 0, 8) \
  FIELD(zot_file_mem, size, 4, 4, 8, 4) \
  RECORD(remote_file_stat, 24, 24) \
  FIELD(remote_file_stat, total_time, 0, 8, 0, 8) \
  FIELD(remote_file_stat, bytes, 8, 8, 8, 8) \
  FIELD(remote_file_stat, http_code, 16, 4, 16, 4) \
  FIELD(remote_file_stat, file_time, 20, 4, 20, 4) \
  RECORD(remote_file_name, 4104, 4112) \
  FIELD(remote_file_name, node, 0, 8, 0, 16) \
  FIELD(remote_file_name, name, 8, 4096, 16, 4096) \
  RECORD(zot_sub_fns, 20, 40) \
  FIELD(zot_sub_fns, commit_gpb, 0, 4, 0, 8) \
  FIELD(zot_sub_fns, get_conf_root, 4, 4, 8, 8) \
  FIELD(zot_sub_fns, get_tmp_root, 8, 4, 16, 8) \
  FIELD(zot_sub_fns, download_k, 12, 4, 24, 8) \
  FIELD(zot_sub_fns, download_gpb, 16, 4, 32, 8) \
  RECORD(zot_slot, 8, 16) \
  FIELD(zot_slot, k, 0, 4, 0, 8) \
  FIELD(zot_slot, gpbs, 4, 4, 8, 8) \
  RECORD(zot_sub_data, 24, 24) \
  FIELD(zot_sub_data, name, 0, 18, 0, 18) \
  FIELD(zot_sub_data, len, 20, 4, 20, 4) \
  RECORD(zot_file_id, 32, 32) \
  FIELD(zot_file_id, device, 0, 8, 0, 8) \
  FIELD(zot_file_id, inode, 8, 8, 8, 8) \
  FIELD(zot_file_id, seconds, 16, 8, 16, 8) \
  FIELD(zot_file_id, nanoseconds, 24, 8, 24, 8) \
  RECORD(zot_own, 168, 176) \
  FIELD(zot_own, conf_root, 0, 4, 0, 8) \
  FIELD(zot_own, tmp_root, 4, 4, 8, 8) \
  FIELD(zot_own, fetched, 8, 32, 16, 32) \
  FIELD(zot_own, verdicts, 40, 8, 48, 8) \
  FIELD(zot_own, marks_waiting, 48, 4, 56, 4) \
  FIELD(zot_own, commit_begun, 52, 4, 60, 4) \
  FIELD(zot_own, cache_doubts, 56, 4, 64, 4) \
  FIELD(zot_own, lock_depth, 60, 4, 68, 4) \
  FIELD(zot_own, lock_fd, 64, 8, 72, 8) \
  FIELD(zot_own, repeated, 72, 32, 80, 32) \
  FIELD(zot_own, repeated_checksum, 104, 64, 112, 64) \
  RECORD(zot_ctx, 17344, 17440) \
  FIELD(zot_ctx, subsys_id, 0, 64, 0, 64) \
  FIELD(zot_ctx, sub_idx, 64, 56, 64, 56) \
  FIELD(zot_ctx, sub_idx_len, 120, 4, 120, 4) \
  FIELD(zot_ctx, parm, 124, 4, 128, 8) \
  FIELD(zot_ctx, err_str, 128, 512, 136, 512) \
  FIELD(zot_ctx, err, 640, 4, 648, 4) \
  FIELD(zot_ctx, fns, 644, 20, 656, 40) \
  FIELD(zot_ctx, slot, 664, 32, 696, 64) \
  FIELD(zot_ctx, sub_data, 696, 24, 760, 24) \
  FIELD(zot_ctx, load_flags, 720, 4, 784, 4) \
  FIELD(zot_ctx, tmp_root, 724, 4096, 788, 4096) \
  FIELD(zot_ctx, tmp_gpb_root, 4820, 4096, 4884, 4096) \
  FIELD(zot_ctx, conf_root, 8916, 4096, 8980, 4096) \
  FIELD(zot_ctx, conf_k_root, 13012, 4096, 13076, 4096) \
  FIELD(zot_ctx, ret, 17108, 8, 17176, 16) \
  FIELD(zot_ctx, ret.list, 17108, 4, 17176, 8) \
  FIELD(zot_ctx, ret.root, 17112, 4, 17184, 8) \
  FIELD(zot_ctx, log_ctx, 17116, 24, 17192, 40) \
  FIELD(zot_ctx, stat, 17144, 24, 17232, 24) \
  FIELD(zot_ctx, dev_mode, 17168, 4, 17256, 4) \
  FIELD(zot_ctx, own, 17176, 168, 17264, 176)
/* clang-format on */

#endif
