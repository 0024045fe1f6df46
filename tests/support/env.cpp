// SPDX-License-Identifier: Apache-2.0
#include "tests/support/env.hpp"

#include <stdlib.h>

#include <utility>

namespace zot::test {
namespace {

std::optional<std::string> value_of(const std::string &name) {
  const char *value = ::getenv(name.c_str());
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

}  // namespace

env_guard::env_guard(std::string name, const std::optional<std::string> &value)
    : name_(std::move(name)), before_(value_of(name_)) {
  set(value);
}

env_guard::~env_guard() {
  set(before_);
}

void env_guard::set(const std::optional<std::string> &value) const {
  if (value.has_value()) {
    ::setenv(name_.c_str(), value->c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

}  // namespace zot::test
