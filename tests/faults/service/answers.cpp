// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "tests/faults/service/misdeed.hpp"

namespace zot::test {

std::function<outcome(request_kind)> always(outcome what) {
  return [what = std::move(what)](request_kind) { return what; };
}

}  // namespace zot::test
