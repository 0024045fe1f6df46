// SPDX-License-Identifier: Apache-2.0
// A managed element under test, with its own folders and environment, a captured log and a handle.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/env.hpp"
#include "tests/support/files.hpp"
#include "tests/support/log_capture.hpp"
#include "zot_conf.h"

namespace zot::test {

struct handle_closer {
  void operator()(zot_ctx *handle) const { static_cast<void>(zot_conf_free(handle)); }
};
using handle_owner = std::unique_ptr<zot_ctx, handle_closer>;

struct returned_entry {
  std::int32_t category = 0;
  std::string key;
  std::uint32_t stat = 0;
  std::string bytes;  // a copy
  std::uint32_t size = 0;
  bool has_data = false;
};

struct returned_list {
  int status = ZOT_OK;
  std::string error_text;    // as the get left it; giving the list back records its own
  int free_status = ZOT_OK;  // of freeing the list
  bool has_list = false;
  std::vector<returned_entry> entries;

  // Null if there is no such entry.
  [[nodiscard]] const returned_entry *find(std::int32_t category, std::string_view key) const;
};

inline constexpr std::uint32_t every_change =
    ZOT_STAT_UNCHANGED | ZOT_STAT_DELETED | ZOT_STAT_ADDED | ZOT_STAT_MODIFIED;

[[nodiscard]] zot_catset every_category();

// zot_conf_get(), with the list copied and freed.
[[nodiscard]] returned_list get(zot_ctx *handle, std::uint32_t mask,
                                const zot_catset &catset = every_category());

// The entries of a list that still belongs to the caller.
[[nodiscard]] std::vector<returned_entry> entries_of(const zot_list *list);

struct element_options {
  std::optional<std::uint16_t> port = {};  // if empty, the environment names no port
  std::optional<std::string> dev_path = {};
  std::string subsys_id = "AP";
  std::string sub_idx = "aabbccddeeff";
  std::uint32_t timeout = 5;
  std::uint32_t timeout_gpb = 30;
  bool start = true;  // false: there is no handle until start() or restart()
};

class element {
 public:
  // Throws if no handle can be created.
  explicit element(element_options options = {});
  explicit element(std::uint16_t port) : element(element_options{.port = port}) {}

  [[nodiscard]] zot_ctx *handle() const { return handle_.get(); }
  [[nodiscard]] log_capture &log() { return log_; }

  // The folders when not in dev mode.
  [[nodiscard]] std::string conf_root() const { return dir_ / "conf/writable/zot/"; }
  [[nodiscard]] std::string tmp_root() const { return dir_ / "scratch/tmp/zot"; }
  // The parent of everything that belongs to this element. Tests may put their own files there.
  [[nodiscard]] const temp_dir &dir() const { return dir_; }

  [[nodiscard]] zot_parm_all parm();
  // Creates a new handle on the same folders, like a restarted process. Throws if none can be
  // created.
  void restart();
  // The same for a start that may fail.
  [[nodiscard]] bool start();
  void stop() { handle_.reset(); }

  [[nodiscard]] std::string error_text() const;
  [[nodiscard]] returned_list get(std::uint32_t mask = every_change,
                                  const zot_catset &catset = every_category()) const;

  // Changes the environment during the life of the element.
  void set_port(std::optional<std::uint16_t> port) const;
  void set_dev_path(const std::optional<std::string> &path) const { dev_path_.set(path); }

 private:
  element_options options_;
  temp_dir dir_;
  env_guard conf_prefix_;
  env_guard tmp_prefix_;
  env_guard dev_path_;
  env_guard port_;
  log_capture log_;
  handle_owner handle_;
};

}  // namespace zot::test
