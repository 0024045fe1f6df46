// SPDX-License-Identifier: Apache-2.0
// The status page of a relay at `/`, and its data at `/status.json`. The page needs no script and
// loads itself again every ten seconds.
#pragma once

#include <optional>
#include <string_view>

#include "tools/relay/relay_state.hpp"
#include "tools/service/element_log.hpp"
#include "tools/service/http_types.hpp"

namespace zotconf {

// The page up to the end of its style.
extern const std::string_view relay_html;

class relay_page {
 public:
  relay_page(const relay_board &board, const element_log &elements)
      : board_(board), elements_(elements) {}

  // Returns nullopt if the request is not one of the page. Safe to call from several threads; never
  // waits for a file.
  [[nodiscard]] std::optional<http_answer> answer(const http_request &request) const;
  // True for a request of the page or its data, which is not logged.
  [[nodiscard]] static bool is_asked(const http_request &request);

 private:
  const relay_board &board_;
  const element_log &elements_;
};

}  // namespace zotconf
