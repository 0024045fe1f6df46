// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "utilities/owner.hpp"
#include "utilities/standard_streams.hpp"
#include "zot_log.hpp"
#include "zot_parm.hpp"

namespace {

constexpr char default_subsys_id[] = "AP";

// Lets messages follow the caller's log control before the handle has its own.
struct start_up_log {
  zot_log_ctx ctx;
  zot_log_ctl ctl;
};

void free_start_up_log(start_up_log *log) {
  if (log->ctx.path_fp != nullptr) {
    std::fclose(log->ctx.path_fp);
  }
  std::free(log);
}

void free_unfinished_handle(zot_ctx *handle) {
  zot_log_free(handle);
  zot_priv_parm_free(handle);
  std::free(handle);
}

using start_up_log_ptr = std::unique_ptr<start_up_log, zot::releaser<free_start_up_log>>;
using unfinished_handle = std::unique_ptr<zot_ctx, zot::releaser<free_unfinished_handle>>;

void store_identity(zot_ctx *handle, const char *subsys_id, const char *sub_idx, size_t id_len) {
  std::snprintf(handle->subsys_id, sizeof handle->subsys_id, "%s", subsys_id);
  if (sub_idx == nullptr) {
    return;
  }
  const size_t length = strnlen(sub_idx, std::min<size_t>(id_len, ZOT_SUB_IDX_LEN));
  std::memcpy(handle->sub_idx, sub_idx, length);
  // An adapter sees only the part of the index that fits into its own buffer.
  handle->sub_data.len = static_cast<uint32_t>(std::min<size_t>(length, ZOT_SUB_NAME_LEN));
}

}  // namespace

zot_ctx *zot_conf_init_args(const char *subsys_id, const char *sub_idx, size_t id_len,
                            zot_parm_all parm) {
  const zot::standard_streams guard;
  unfinished_handle handle(zot::make_zeroed<zot_ctx>().release());
  start_up_log_ptr start_up(zot::make_zeroed<start_up_log>().release());
  if (start_up == nullptr) {
    std::fputs("Unable to allocate memory\n", stderr);
    return nullptr;
  }
  zot_log_ctx *const log = &start_up->ctx;
  start_up->ctl = parm.log_ctl;
  log->ctl = &start_up->ctl;
  if (handle == nullptr) {
    ZOT_LOG(log, ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, "%sout of memory\n");
    return nullptr;
  }
  handle->ret.root = handle->conf_root;
  ZOT_LOG(log, ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, "%sStart init zot lib.\n");
  if (id_len > ZOT_SUB_IDX_LEN) {
    ZOT_LOG(log, ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, "%sid_len:%ld is too long\n",
            static_cast<long>(id_len));
    return nullptr;
  }
  const char *const id = subsys_id != nullptr ? subsys_id : default_subsys_id;
  if (const size_t length = std::strlen(id); length > ZOT_SUBSYS_ID_LEN) {
    ZOT_LOG(log, ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, "%ssub-system ID:%ld is too long:\n",
            static_cast<long>(length));
    return nullptr;
  }
  if (zot_priv_parm_new(handle.get()) != ZOT_OK) {
    ZOT_LOG(log, ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, "%sinit parameter: Failed:%s\n",
            handle->err_str);
    return nullptr;
  }
  if (zot_parm_set(handle.get(), ZOT_PARM_ALL, &parm, sizeof parm) != ZOT_OK) {
    ZOT_LOG(log, ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, "%sinit set log option: Failed:%s\n",
            handle->err_str);
    return nullptr;
  }
  start_up.reset();
  ZOT_LOG(handle.get(), ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, "%sinit log setting: Done\n");
  store_identity(handle.get(), id, sub_idx, id_len);
  if (zot_priv_init_sub_sys(handle.get()) != ZOT_OK) {
    return nullptr;
  }
  ZOT_LOG(handle.get(), ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, "%sInit. zot lib: Done\n");
  return handle.release();
}

zot_ctx *zot_conf_init2(const char *subsys_id, const char *sub_idx, size_t id_len) {
  zot_parm_all parm{};
  zot_util_init_conf_parm(&parm);
  return zot_conf_init_args(subsys_id, sub_idx, id_len, parm);
}

zot_ctx *zot_conf_init(const char *sub_idx, size_t id_len) {
  return zot_conf_init2(default_subsys_id, sub_idx, id_len);
}
