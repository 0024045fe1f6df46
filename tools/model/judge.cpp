// SPDX-License-Identifier: Apache-2.0
#include "tools/model/judge.hpp"

#include <cstddef>

#include "zot_conf.hpp"

namespace zotconf {
namespace {

int drop_line(zot_log_ctx * /*log_ctx*/, void * /*arg*/, const char * /*line*/) {
  return 0;
}

}  // namespace

std::string_view name_of_status(int code) {
  return status(code).name();
}

std::string described(const library_status &status) {
  return status.text + " (" + std::to_string(status.code) + ")";
}

const zot_gpb &gpb_of(const zot_list *node) {
  return *reinterpret_cast<const zot_gpb *>(reinterpret_cast<const char *>(node) -
                                            offsetof(zot_gpb, node));
}

judge::judge() {
  zot_util_init_conf_parm(&parm_.all);
  parm_.handle = &handle_;
  parm_.all.log_ctl.dst = ZOT_LOG_DST_CB_FUNC;
  parm_.all.log_ctl.level = ZOT_LOG_ERROR;
  zot_util_set_log_ctl_dst_cb_func(&parm_.all.log_ctl, drop_line, nullptr);
  handle_.parm = &parm_;
  handle_.log_ctx.ctl = &parm_.all.log_ctl;
}

library_status judge::recorded(int code) const {
  const status told(code, zot_util_get_err_str(&handle_));
  return {.code = code, .text = told.text().empty() ? status(code).text() : told.text()};
}

}  // namespace zotconf
