// SPDX-License-Identifier: Apache-2.0
// A handle with parameters and a captured log, but without directories or a sub-system.
#pragma once

#include <cstdlib>

#include "tests/support/log_capture.hpp"
#include "zot_parm.hpp"

namespace zot::test {

class bare_handle {
 public:
  bare_handle() : handle_(static_cast<zot_ctx *>(std::calloc(1, sizeof(zot_ctx)))) {
    zot_priv_parm_new(handle_);
    handle_->parm->all.log_ctl = log_.ctl();
  }
  bare_handle(const bare_handle &) = delete;
  bare_handle &operator=(const bare_handle &) = delete;
  ~bare_handle() {
    zot_log_free(handle_);
    zot_priv_parm_free(handle_);
    std::free(handle_);
  }

  zot_ctx *get() { return handle_; }
  zot_ctx *operator->() { return handle_; }
  log_capture &log() { return log_; }
  zot_log_ctl &ctl() { return handle_->parm->all.log_ctl; }

 private:
  log_capture log_;
  zot_ctx *handle_;
};

}  // namespace zot::test
