// SPDX-License-Identifier: Apache-2.0
// A handle without directories or a service that formats every message and discards it.
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
