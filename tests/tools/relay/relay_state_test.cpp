// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_state.hpp"

#include <curl/curl.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "tests/tools/relay/served_relay.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::relay_health;
using zotconf::relay_problem;

constexpr std::time_t now = relay_start;

relay_problem kind_of(const std::string &text, bool is_refused = false) {
  zotconf::relay_state state = good_relay(now);
  state.problem = text;
  state.is_refused = is_refused;
  return zotconf::problem_of(state);
}

TEST(RelayState, IsStaleWhenTheLastContactIsOlderThanTheLimit) {
  zotconf::relay_state state = good_relay(now);
  state.max_age = 60s;
  state.last_contact = now - 60;
  EXPECT_FALSE(zotconf::is_stale(state, now));
  EXPECT_TRUE(zotconf::is_stale(state, now + 1));
}

TEST(RelayState, CountsFromTheStartBeforeTheFirstContact) {
  zotconf::relay_state state = new_relay(now);
  state.max_age = 60s;
  EXPECT_FALSE(zotconf::is_stale(state, state.started + 60));
  EXPECT_TRUE(zotconf::is_stale(state, state.started + 61));
}

TEST(RelayState, IsNeverStaleWithoutALimit) {
  zotconf::relay_state state = good_relay(now);
  state.max_age = 0s;
  EXPECT_FALSE(zotconf::is_stale(state, now + 1000000));
}

TEST(RelayState, TakesAClockThatWasSetBackForNoTime) {
  EXPECT_FALSE(zotconf::is_stale(good_relay(now), now - 1000000));
  EXPECT_EQ(zotconf::age_of(now, now - 5), 0s);
  EXPECT_EQ(zotconf::age_of(now, now + 5), 5s);
}

TEST(RelayState, IsGoodOnlyWithAPublicationWithContactAndWithoutAProblem) {
  zotconf::relay_state state = good_relay(now);
  EXPECT_EQ(zotconf::health_of(state, now), relay_health::good);
  EXPECT_EQ(zotconf::health_of(state, now + 86400), relay_health::problem);
  state.problem = "no connection";
  EXPECT_EQ(zotconf::health_of(state, now), relay_health::problem);
  state.has_publication = false;
  EXPECT_EQ(zotconf::health_of(state, now), relay_health::nothing);
  EXPECT_EQ(zotconf::health_of(new_relay(now), now), relay_health::nothing);
}

TEST(RelayState, TellsWhatAProblemComesFrom) {
  EXPECT_EQ(kind_of(""), relay_problem::none);
  EXPECT_EQ(kind_of("checksum: " + std::string(curl_easy_strerror(CURLE_COULDNT_CONNECT))),
            relay_problem::server);
  EXPECT_EQ(kind_of("cannot connect to 10.0.0.1:443: Permission denied"), relay_problem::server);
  EXPECT_EQ(kind_of(curl_easy_strerror(CURLE_OPERATION_TIMEDOUT)), relay_problem::server);
  EXPECT_EQ(kind_of("K.checksum: HTTP status 503"), relay_problem::server);
  EXPECT_EQ(kind_of("the signature is not trusted", true), relay_problem::publication);
}

TEST(RelayState, RecognisesEachFailureOfTheHandshake) {
  for (const CURLcode code :
       {CURLE_PEER_FAILED_VERIFICATION, CURLE_SSL_CONNECT_ERROR, CURLE_SSL_CERTPROBLEM,
        CURLE_SSL_CACERT_BADFILE, CURLE_SSL_ISSUER_ERROR, CURLE_SSL_CLIENTCERT}) {
    EXPECT_EQ(kind_of(curl_easy_strerror(code)), relay_problem::certificate)
        << curl_easy_strerror(code);
  }
  EXPECT_EQ(kind_of("the certificate of example.net is not valid: certificate has expired"),
            relay_problem::certificate);
}

TEST(RelayState, RecognisesAStoreThatCannotBeWritten) {
  for (const int error : {ENOSPC, EDQUOT, EROFS, EIO, EACCES}) {
    EXPECT_EQ(kind_of(std::string("cannot write /store: ") + std::strerror(error)),
              relay_problem::storage)
        << std::strerror(error);
  }
  EXPECT_EQ(kind_of("no space left in the store: the update needs 4.0 MiB"),
            relay_problem::storage);
}

TEST(RelayState, DoesNotTakeTheNameOfAFileForTheCause) {
  EXPECT_EQ(kind_of("config/Wlan/certificate/1: HTTP status 404"), relay_problem::server);
}

TEST(RelayBoard, HandsOutWholeStates) {
  zotconf::relay_board board(new_relay(now));
  std::jthread writer([&board](const std::stop_token &stop) {
    for (uint64_t round = 1; !stop.stop_requested(); ++round) {
      board.change([round](zotconf::relay_state &state) {
        state.rounds = round;
        state.problem = std::to_string(round);
      });
    }
  });
  uint64_t last = 0;
  while (last < 1000) {
    const zotconf::relay_state seen = board.read();
    ASSERT_EQ(seen.problem, seen.rounds == 0 ? "" : std::to_string(seen.rounds));
    ASSERT_GE(seen.rounds, last);
    last = seen.rounds;
  }
}

}  // namespace
}  // namespace zot::test
