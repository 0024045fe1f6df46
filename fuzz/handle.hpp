// SPDX-License-Identifier: Apache-2.0
// A handle that formats every message and discards it, without directories or a service.
#pragma once

#include "zot_conf.h"

namespace zot::fuzz {

class handle {
 public:
  handle();
  handle(const handle &) = delete;
  handle &operator=(const handle &) = delete;
  ~handle();

  [[nodiscard]] zot_ctx *get() const { return ctx_; }

 private:
  zot_ctx *ctx_;
};

}  // namespace zot::fuzz
