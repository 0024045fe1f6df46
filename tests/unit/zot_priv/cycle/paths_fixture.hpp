// SPDX-License-Identifier: Apache-2.0
// A handle whose roots are in a folder of the test.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/support/env.hpp"
#include "tests/support/files.hpp"
#include "tests/unit/bare_handle.hpp"
#include "zot_conf.h"

namespace zot::test {

class Paths : public testing::Test {
 protected:
  Paths() { zot_sub_init_fns(handle_.get()); }
  int reload() { return zot_priv_reload_sys_paths(handle_.get()); }
  void expect_line(const std::string &text, uint32_t level, uint32_t mask, const char *func) {
    const log_record *line = handle_.log().find(text);
    ASSERT_NE(line, nullptr) << text << handle_.log().dump();
    EXPECT_EQ(line->level, level) << text;
    EXPECT_EQ(line->mask, mask) << text;
    EXPECT_EQ(line->func, func) << text;
  }

  temp_dir dir_;
  env_guard conf_prefix_{"ZOT_PREFIX_CONF_ROOT", dir_ / "conf"};
  env_guard tmp_prefix_{"ZOT_PREFIX_TMP_ROOT", dir_ / "scratch"};
  env_guard dev_path_{"ZOT_DEV_PATH", std::nullopt};
  env_guard port_{"ZOT_REMOTE_PORT", std::nullopt};
  bare_handle handle_;
  char buf_[ZOT_PATH_SIZE] = "";
};

}  // namespace zot::test
