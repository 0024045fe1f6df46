// SPDX-License-Identifier: Apache-2.0
#include "fuzz/handle.hpp"

#include <cstring>

#include "fuzz/check.hpp"

namespace zot::fuzz {
namespace {

int swallow(zot_log_ctx *, void *, const char *line) {
  check(line != nullptr, "a message has a text");
  return 0;
}

}  // namespace

handle::handle() {
  constexpr char index[] = "aabbccddeeff";
  zot_parm_all parm{};
  zot_util_init_conf_parm(&parm);
  parm.log_ctl.level = ZOT_LOG_DEBUG;
  parm.log_ctl.facility = ZOT_TOPIC_DEFAULT | ZOT_TOPIC_DETAIL;
  zot_util_set_log_ctl_dst_cb_func(&parm.log_ctl, swallow, nullptr);
  ctx_ = zot_conf_init_args("AP", index, std::strlen(index), parm);
  check(ctx_ != nullptr, "a handle is created");
}

handle::~handle() {
  zot_conf_free(ctx_);
}

}  // namespace zot::fuzz
