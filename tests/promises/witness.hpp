// SPDX-License-Identifier: Apache-2.0
// Notes which test got which status from which call of the interface. The functions that
// wrappers.awk writes stand between the tests and the library.
#pragma once

namespace zot::test {

// Within the library the calls use each other: only the outermost one is the test's own.
class witnessed_call {
 public:
  witnessed_call();
  witnessed_call(const witnessed_call &) = delete;
  witnessed_call &operator=(const witnessed_call &) = delete;
  ~witnessed_call();

  void returned(const char *name, int status) const;
};

template <typename Call>
int witnessed(const char *name, Call call) {
  const witnessed_call own;
  const int status = call();
  own.returned(name, status);
  return status;
}

}  // namespace zot::test
