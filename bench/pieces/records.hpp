// SPDX-License-Identifier: Apache-2.0
// The records for the operations, released at the end of their scope.
#pragma once

#include <cstddef>

#include "bench/pieces/document.hpp"
#include "zot_conf.h"

namespace zot::bench {

// A handle with the default log and no directories: no operation uses a cache.
class bare_handle {
 public:
  bare_handle();
  bare_handle(const bare_handle &) = delete;
  bare_handle &operator=(const bare_handle &) = delete;

  [[nodiscard]] zot_ctx *get() { return &handle_; }
  [[nodiscard]] zot_log_ctl &log() { return log_; }

 private:
  zot_log_ctl log_{};
  zot_ctx handle_{};
};

// A K after its bytes were read.
class knowledge {
 public:
  explicit knowledge(const document &of);
  knowledge(const knowledge &) = delete;
  knowledge &operator=(const knowledge &) = delete;
  ~knowledge();

  [[nodiscard]] zot_k *get() { return &k_; }
  [[nodiscard]] bool validate();
  [[nodiscard]] bool is_valid(std::size_t entries) const;
  // Restores the state before validation.
  void forget();

 private:
  bare_handle handle_;
  zot_k k_{};
};

// Gives an entry verified content, which is never read.
void stand_for_verified(zot_gpb &gpb);

class gpb_list {
 public:
  gpb_list();
  gpb_list(const gpb_list &) = delete;
  gpb_list &operator=(const gpb_list &) = delete;
  ~gpb_list();

  [[nodiscard]] zot_list *get() { return &head_; }
  [[nodiscard]] const zot_list *get() const { return &head_; }
  [[nodiscard]] bool build(knowledge &from);
  // Whether it contains exactly the files of a document, in order.
  [[nodiscard]] bool holds(const document &all) const;
  void release();

 private:
  bare_handle handle_;
  zot_list head_{};
};

// A checked K and the list built from it.
struct configuration {
  explicit configuration(const document &of);

  bool is_ready = false;
  knowledge k;
  gpb_list gpbs;
};

}  // namespace zot::bench
