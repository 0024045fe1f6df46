// SPDX-License-Identifier: Apache-2.0
// The checks of a service, in their order.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "tools/model/names.hpp"
#include "tools/model/stored_k.hpp"
#include "tools/probe/service_client.hpp"

namespace zotconf {

// A service, and what the checks have found out about it.
struct subject {
  service_client service;
  element who;
  unsigned polls = 0;
  fs::path folder;  // for temporary files
  bool is_connected = false;
  std::optional<std::string> checksum_file = {};  // its bytes
  std::optional<stored_k> k = {};                 // a good one
};

// What a check needs of the checks before it.
enum class need { nothing, connection, checksum, k, checksum_and_k, file };

// Returns an empty text when it is there, else what is missing.
std::string missing_for(need what, const subject &on);

struct check {
  const char *name;      // one word for programs
  const char *expected;  // what the service has to do
  need needs;
  // Throws std::exception, which says what came instead, and stopped_by_signal.
  void (*run)(subject &on);
};

std::span<const check> checks_of_service();

}  // namespace zotconf
