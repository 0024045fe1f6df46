// SPDX-License-Identifier: Apache-2.0
// Transfers with a libcurl that lacks an option or has no memory for it.
#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "tests/support/env.hpp"
#include "tests/support/files.hpp"
#include "tests/support/service.hpp"
#include "utilities/http_limits.hpp"
#include "zot_conf.h"

#undef curl_easy_setopt

namespace {

// Controls the next calls of curl_easy_setopt() and records the options and numbers that they set.
struct option_gate {
  std::optional<CURLoption> closed = std::nullopt;
  CURLcode answer = CURLE_OK;
  std::set<CURLoption> asked = {};
  std::map<CURLoption, long> numbers = {};
};

thread_local option_gate *gate = nullptr;

using set_option = CURLcode (*)(CURL *, CURLoption, ...);

// The number of the option tells the type of its argument.
CURLcode hand_on(CURL *curl, CURLoption option, va_list args) {
  static const auto next = reinterpret_cast<set_option>(::dlsym(RTLD_NEXT, "curl_easy_setopt"));
  constexpr int numbers_of_a_type = 10000;
  switch (option / numbers_of_a_type * numbers_of_a_type) {
    case CURLOPTTYPE_LONG: {
      const long number = va_arg(args, long);
      if (gate != nullptr) {
        gate->numbers[option] = number;
      }
      return next(curl, option, number);
    }
    case CURLOPTTYPE_OFF_T:
      return next(curl, option, va_arg(args, curl_off_t));
    default:
      return next(curl, option, va_arg(args, void *));
  }
}

}  // namespace

// Replaces the function of libcurl for this whole program.
extern "C" CURLcode curl_easy_setopt(CURL *curl, CURLoption option, ...) {
  if (gate != nullptr) {
    gate->asked.insert(option);
    if (gate->closed == option) {
      return gate->answer;
    }
  }
  va_list args;
  va_start(args, option);
  const CURLcode result = hand_on(curl, option, args);
  va_end(args);
  return result;
}

namespace {

using zot::test::env_guard;
using zot::test::read_bytes;
using zot::test::service;
using zot::test::temp_dir;

// Transfers one file, or a set of files if the parameter is true.
class HttpOptions : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    service_.answer("/x", 200, "bytes");
    zot_list_init(&names_);
    std::strncpy(name_.name, "a", sizeof name_.name - 1);
    zot_list_add_node_tail(&names_, &name_.node);
    zot_util_watch_transfers([](void *, std::uint64_t) { return 0; }, nullptr);
    gate = &gate_;
  }
  void TearDown() override {
    gate = nullptr;
    zot_util_watch_transfers(nullptr, nullptr);
  }

  int transfer() {
    return GetParam() ? zot::get_remote_file_set_within(url_.c_str(), path_.c_str(), &names_, limit,
                                                        nullptr)
                      : zot::get_remote_file_within(url_.c_str(), path_.c_str(), nullptr, 30, limit,
                                                    nullptr);
  }
  std::set<CURLoption> options() {
    gate_ = {};
    EXPECT_EQ(transfer(), 0);
    return gate_.asked;
  }
  void close(CURLoption option, CURLcode answer) { gate_ = {.closed = option, .answer = answer}; }

  static constexpr std::uint64_t limit = 1000;
  temp_dir dir_;
  std::string path_ = dir_ / "file";
  service service_;
  std::string url_ = service_.url("/x");
  zot_list names_{};
  remote_file_name name_{};
  option_gate gate_;
};

// The source and target of the bytes, the limit on headers, and the posted body.
const std::set<CURLoption> needed{CURLOPT_URL,        CURLOPT_WRITEFUNCTION,  CURLOPT_WRITEDATA,
                                  CURLOPT_HEADERDATA, CURLOPT_HEADERFUNCTION, CURLOPT_POST,
                                  CURLOPT_POSTFIELDS};

TEST_P(HttpOptions, ATransferDoesWithoutWhatIsNoPartOfIt) {
  for (const CURLoption option : options()) {
    if (needed.count(option) != 0) {
      continue;
    }
    for (const CURLcode absent : {CURLE_UNKNOWN_OPTION, CURLE_NOT_BUILT_IN}) {
      close(option, absent);
      EXPECT_EQ(transfer(), 0) << "option " << option << ": " << absent;
      EXPECT_EQ(read_bytes(path_), "bytes") << "option " << option;
    }
  }
}

TEST_P(HttpOptions, ATransferFailsWithoutWhatItNeeds) {
  for (const CURLoption option : options()) {
    if (needed.count(option) != 0) {
      close(option, CURLE_UNKNOWN_OPTION);
      EXPECT_EQ(transfer(), CURLE_UNKNOWN_OPTION) << "option " << option;
    }
  }
}

TEST_P(HttpOptions, WantOfMemoryForAnyOfThemFailsBeforeARequest) {
  const std::set<CURLoption> asked = options();
  EXPECT_GT(asked.size(), needed.size());
  const auto requests = service_.requests().size();
  for (const CURLoption option : asked) {
    close(option, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(transfer(), CURLE_OUT_OF_MEMORY) << "option " << option;
  }
  EXPECT_EQ(service_.requests().size(), requests);
}

// If the option cannot be set, for whatever reason, a proxy may still be in use.
TEST_P(HttpOptions, AnyOtherRefusalOfTheProxyFailsBeforeARequest) {
  const env_guard proxy("http_proxy", "http://" + service_.host());
  close(CURLOPT_PROXY, CURLE_BAD_FUNCTION_ARGUMENT);
  EXPECT_EQ(transfer(), CURLE_BAD_FUNCTION_ARGUMENT);
  EXPECT_TRUE(service_.requests().empty());
}

TEST(HttpTimeOut, LongestIsTheLongestThatLibcurlTakes) {
  const temp_dir dir;
  service source;
  source.answer("/x", 200, "bytes");
  option_gate recorded;
  gate = &recorded;
  const int result = zot::get_remote_file_within(source.url("/x").c_str(), (dir / "file").c_str(),
                                                 nullptr, UINT32_MAX, 1000, nullptr);
  gate = nullptr;
  EXPECT_EQ(result, 0);
  EXPECT_EQ(recorded.numbers[CURLOPT_TIMEOUT], INT_MAX / 1000);
}

INSTANTIATE_TEST_SUITE_P(Transfers, HttpOptions, testing::Bool(),
                         [](const testing::TestParamInfo<bool> &form) {
                           return form.param ? "Set" : "File";
                         });

}  // namespace
