// SPDX-License-Identifier: Apache-2.0
// A publication and a page about it on one HTTP server.
#pragma once

#include <exception>
#include <ostream>
#include <stop_token>
#include <utility>

#include "tools/output/plain_text.hpp"
#include "tools/service/http_server.hpp"
#include "tools/service/publication_service.hpp"

namespace zotconf {

// `Page` has is_asked(), and answer(), which returns nullopt for a request that is not one of the
// page.
template <class Page>
class paged_service : public http_service {
 public:
  paged_service(publication_service published, Page &page, std::ostream &err)
      : published_(published), page_(page), err_(err) {}

  [[nodiscard]] http_work work_of(const http_request &request) const override {
    if (Page::is_asked(request)) {
      return http_work::slow;
    }
    return publication_service::is_for_archive(request) ? http_work::heavy : http_work::quick;
  }
  [[nodiscard]] http_answer answer(const http_request &request,
                                   const std::stop_token &stop) override {
    auto page = page_.answer(request);
    return page ? std::move(*page) : published_.answer(request, stop);
  }
  void failed(const std::exception &error) override {
    err_ << "zotconf: " + printable(error.what()) + "\n" << std::flush;
  }
  void finished(const http_exchange & /*exchange*/) override {}

 private:
  publication_service published_;
  Page &page_;
  std::ostream &err_;
};

}  // namespace zotconf
