// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/connection.hpp"

#include <gtest/gtest.h>

#include "tests/tools/relay/scripted_server.hpp"
#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

using connection = scripted_server::connection;

size_t drop(char * /*data*/, size_t size, size_t count, void * /*context*/) {
  return size * count;
}

class Connection : public testing::Test {
 protected:
  // The head of a request with these options.
  [[nodiscard]] std::string request_to(const std::string &url) const {
    const zotconf::curl_library library;
    const zotconf::upstream_url address(url);
    const std::unique_ptr<CURL, zot::releaser<curl_easy_cleanup>> curl(curl_easy_init());
    zotconf::set_connection(curl.get(), options_, address);
    zotconf::set_option(curl.get(), CURLOPT_URL, address.of("a").c_str());
    zotconf::set_option(curl.get(), CURLOPT_WRITEFUNCTION, drop);
    EXPECT_EQ(curl_easy_perform(curl.get()), CURLE_OK);
    return server_.requests().back();
  }

  const scripted_server server_{[](connection &with, const std::string &, unsigned) {
    return with.send(response("302 Found", "Location: /b\r\n", ""));
  }};
  const zotconf::connection_options options_{.ca = {},
                                             .certificate = {},
                                             .key = {},
                                             .connect_timeout = std::chrono::seconds(5),
                                             .certificate_time = {}};
};

TEST_F(Connection, SendsCredentialsOnlyIfTheUrlHasThem) {
  EXPECT_FALSE(has(request_to(server_.url()), "Authorization"));
  EXPECT_TRUE(has(request_to("http://user:secret@" + server_.place()),
                  "Authorization: Basic dXNlcjpzZWNyZXQ=\r\n"));
}

TEST_F(Connection, DoesNotFollowRedirections) {
  EXPECT_TRUE(request_to(server_.url()).starts_with("GET /a HTTP/1.1\r\n"));
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(Connection, AnOptionThatIsNotKnownIsAnError) {
  const zotconf::curl_library library;
  const std::unique_ptr<CURL, zot::releaser<curl_easy_cleanup>> curl(curl_easy_init());
  EXPECT_THROW(zotconf::set_option(curl.get(), CURLOPT_LASTENTRY, 1L), std::runtime_error);
}

}  // namespace
}  // namespace zot::test
