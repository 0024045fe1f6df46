// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_upload.hpp"

#include <gtest/gtest.h>

#include <future>

#include "tests/tools/relay/nginx.hpp"
#include "tests/tools/relay/report_receiver.hpp"
#include "tests/tools/relay/scripted_server.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::connection_options;
using zotconf::report_upload;
using zotconf::upload_end;
using connection = scripted_server::connection;
using steady = std::chrono::steady_clock;

const std::string path = "AP/001122334455.json";

connection_options plain() {
  return {.ca = {}, .certificate = {}, .key = {}, .connect_timeout = 5s, .certificate_time = {}};
}

upload_end put(const std::string &url, std::chrono::milliseconds limit = 20s) {
  return report_upload(url, plain(), limit).put(path, "{}");
}

TEST(ReportUpload, PutsTheDocumentBelowTheUrl) {
  const report_receiver receiver;
  EXPECT_EQ(put(receiver.url() + "/").wrong, "");
  const auto all = receiver.all();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all.front().path, "/reports/" + path);
  EXPECT_EQ(all.front().body, "{}");
  EXPECT_EQ(all.front().type, "application/json");
  EXPECT_EQ(all.front().authorization, "");
}

TEST(ReportUpload, PutsLongDocumentsWhole) {
  const report_receiver receiver;
  const std::string body = noise(60'000);
  report_upload to(receiver.url(), plain(), 20s);
  EXPECT_EQ(to.put(path, body).wrong, "");
  EXPECT_TRUE(receiver.all().front().body == body);
}

TEST(ReportUpload, SendsTheCredentialsOfTheUrl) {
  const report_receiver receiver;
  EXPECT_EQ(put("http://user:secret@" + receiver.place()).wrong, "");
  EXPECT_EQ(receiver.all().front().authorization, "Basic dXNlcjpzZWNyZXQ=");
}

TEST(ReportUpload, SucceedsWithThreeStatusesOnly) {
  report_receiver receiver;
  for (const int status : {200, 201, 204}) {
    receiver.answer(status);
    EXPECT_EQ(put(receiver.url()).wrong, "") << status;
  }
  for (const int status : {202, 403, 404, 413, 500, 507}) {
    receiver.answer(status);
    EXPECT_EQ(put(receiver.url()).wrong, path + ": status " + std::to_string(status));
  }
}

TEST(ReportUpload, DoesNotFollowRedirections) {
  report_receiver elsewhere;
  report_receiver receiver;
  receiver.answer(307, "", elsewhere.url());
  EXPECT_TRUE(put(receiver.url()).wrong.starts_with(path + ": status 307")) << "followed";
  EXPECT_EQ(elsewhere.count(), 0U);
}

TEST(ReportUpload, TellsHowLongTheServerWantsItToWait) {
  report_receiver receiver;
  receiver.answer(503, "120");
  EXPECT_EQ(put(receiver.url()).retry_after, 120s);
  receiver.answer(503, "1000000");
  EXPECT_EQ(put(receiver.url()).retry_after, 24h);
}

TEST(ReportUpload, TellsThatNothingListens) {
  const std::string place = "127.0.0.1:" + std::to_string([] {
                              const report_receiver gone;
                              return std::stoi(gone.place().substr(10));
                            }());
  EXPECT_EQ(put("http://" + place).wrong, "cannot connect to " + place + ": refused");
}

TEST(ReportUpload, HasATimeLimitForAServerThatNeverAnswers) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.stay_silent();
    return false;
  });
  const auto begin = steady::now();
  EXPECT_EQ(put(server.url(), 300ms).wrong, "no answer from " + server.place() + " for 300ms");
  EXPECT_LT(steady::now() - begin, 10s);
}

TEST(ReportUpload, HasATimeLimitForAServerThatSendsAByteNowAndThen) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    while (with.send("H")) {
      std::this_thread::sleep_for(50ms);
    }
    return false;
  });
  EXPECT_NE(put(server.url(), 400ms).wrong, "");
}

TEST(ReportUpload, TheStatusCountsEvenIfTheBodyNeverEnds) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.send("HTTP/1.1 201 Created\r\n\r\n");
    while (with.send("more")) {
    }
    return false;
  });
  EXPECT_EQ(put(server.url()).wrong, "");
}

TEST(ReportUpload, EndsHeadersThatNeverEnd) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.send("HTTP/1.1 201 Created\r\n");
    while (with.send("X-More: more\r\n")) {
    }
    return false;
  });
  EXPECT_NE(put(server.url()).wrong, "");
}

TEST(ReportUpload, TellsThatTheConnectionEnded) {
  const scripted_server server([](connection &, const std::string &, unsigned) { return false; });
  EXPECT_TRUE(put(server.url()).wrong.starts_with("the connection ended without an answer"));
}

TEST(ReportUpload, AStopEndsATransferAtOnce) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.stay_silent();
    return false;
  });
  report_upload to(server.url(), plain(), 60s);
  auto end = std::async(std::launch::async, [&] { return to.put(path, "{}"); });
  wait_until([&] { return !server.requests().empty(); }, "a request");
  const auto begin = steady::now();
  to.stop();
  EXPECT_EQ(end.get().wrong, "stopped");
  EXPECT_LT(steady::now() - begin, 900ms);
  EXPECT_EQ(to.put(path, "{}").wrong, "stopped");
}

TEST(ReportUpload, RefusesAUrlThatItCannotUse) {
  EXPECT_THROW(report_upload("ftp://127.0.0.1", plain(), 1s), std::runtime_error);
  EXPECT_THROW(report_upload("http://127.0.0.1/?a=b", plain(), 1s), std::runtime_error);
}

// nginx as docs/operations.md describes it: an element may write its own file only.
class ReportUploadToNginx : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(nginx::is_installed()) << "nginx is not installed";
    authority_.issue({.name = "server", .names = "IP:127.0.0.1"});
    authority_.issue({.name = "001122334455"});
    server_ =
        std::make_unique<nginx>(authority_, "ssl_client_certificate " + authority_.path() +
                                                ";\nssl_verify_client on;\n"
                                                "location / { return 403; }\n"
                                                "location ~ ^/reports/AP/([0-9A-F]+)\\.json$ {\n"
                                                "set $wanted \"CN=$1\";\n"
                                                "if ($ssl_client_s_dn != $wanted) { return 403; }\n"
                                                "limit_except PUT { deny all; }\n"
                                                "dav_methods PUT;\ncreate_full_put_path on;\n"
                                                "client_max_body_size 64k;\n}\n");
  }
  [[nodiscard]] upload_end put_with(connection_options options, const std::string &where,
                                    const std::string &body = "{}") const {
    options.ca = authority_.path();
    options.connect_timeout = 5s;
    return report_upload(server_->url() + "/reports", std::move(options), 20s).put(where, body);
  }
  [[nodiscard]] connection_options identified() const {
    connection_options options = plain();
    options.certificate = authority_.certificate_of("001122334455");
    options.key = authority_.key_of("001122334455");
    return options;
  }

  tls_authority authority_;
  std::unique_ptr<nginx> server_;
};

TEST_F(ReportUploadToNginx, StoresAndReplacesTheFileOfTheElement) {
  EXPECT_EQ(put_with(identified(), path, "first").wrong, "");
  EXPECT_EQ(put_with(identified(), path, "second").wrong, "");
  EXPECT_EQ(read_bytes(server_->root() + "/reports/" + path), "second");
}

TEST_F(ReportUploadToNginx, DoesNotWriteTheFileOfAnotherElement) {
  const std::string other = "AP/AABBCCDDEEFF.json";
  EXPECT_EQ(put_with(identified(), other).wrong, other + ": status 403");
  EXPECT_FALSE(exists(server_->root() + "/reports/" + other));
}

TEST_F(ReportUploadToNginx, NeedsTheCertificateOfTheElement) {
  EXPECT_EQ(put_with(plain(), path).wrong, path + ": status 400");
}

TEST_F(ReportUploadToNginx, TooLongADocumentIsRefused) {
  EXPECT_EQ(put_with(identified(), path, noise(70'000)).wrong, path + ": status 413");
}

TEST_F(ReportUploadToNginx, JudgesCertificatesAtTheGivenTime) {
  connection_options options = identified();
  options.certificate_time = [] { return std::time_t{1}; };
  EXPECT_EQ(put_with(options, path).wrong,
            "the certificate of 127.0.0.1 is not valid: certificate is not yet valid");
  options.certificate_time = [] { return std::time(nullptr); };
  EXPECT_EQ(put_with(options, path).wrong, "");
}

}  // namespace
}  // namespace zot::test
