// SPDX-License-Identifier: Apache-2.0
// The library with its own service and directories, driven by the same steps as the model.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "catalogue.hpp"
#include "disk.hpp"
#include "model.hpp"
#include "steps.hpp"
#include "tests/support/element.hpp"
#include "tests/support/service.hpp"

namespace zot::faults {

enum class adapter {
  own,    // the library's operations: the archive over HTTP, tar, cp
  client  // operations of a client that write the GPB files directly
};

class world {
 public:
  world(test::service &remote, std::uint16_t closed_port, adapter used);

  void publish(const offer &published);
  void set_service(bool up);
  void damage(const std::vector<change> &changes) const;

  outcome get(std::uint32_t mask, const zot_catset &categories);
  outcome commit();
  outcome roll_back();
  void restart();

  [[nodiscard]] view look() const;

 private:
  [[nodiscard]] std::string directory_of(area where) const;
  [[nodiscard]] std::string requests() const;

  test::service &remote_;
  std::uint16_t closed_port_;
  adapter adapter_;
  test::element element_;
  test::handle_owner handle_;
};

}  // namespace zot::faults
