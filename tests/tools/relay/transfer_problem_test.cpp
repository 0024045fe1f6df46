// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/transfer_problem.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/tools/relay/fetching.hpp"
#include "tests/tools/relay/scripted_server.hpp"
#include "tests/tools/relay/tls_authority.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::upstream;

class Tls : public testing::Test, protected fetching {
 protected:
  ~Tls() override {
    if (server_ != nullptr) {
      server_->stop();
      thread_.join();
    }
  }

  // Serves with this certificate. Clients need a certificate of `clients`, if it is given.
  void serve(const tls_authority::subject &whom, const tls_authority *clients = nullptr) {
    authority_.issue(whom);
    server_ = std::make_unique<httplib::SSLServer>(
        authority_.certificate_of(whom.name).c_str(), authority_.key_of(whom.name).c_str(),
        clients == nullptr ? nullptr : clients->path().c_str());
    server_->set_keep_alive_max_count(1000);
    server_->Get("/elsewhere", [](const httplib::Request &, httplib::Response &answer) {
      answer.set_redirect("http://127.0.0.1:1/k");
    });
    server_->Get(".*", [](const httplib::Request &, httplib::Response &answer) {
      answer.set_content("bytes", "application/octet-stream");
    });
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    wait_until([this] { return server_->is_running(); }, "the server");
  }
  [[nodiscard]] std::string place() const { return "127.0.0.1:" + std::to_string(port_); }
  [[nodiscard]] zotconf::upstream_options options() const {
    zotconf::upstream_options options = options_for("https://user:secret@" + place());
    options.ca = authority_.path();
    return options;
  }
  static zotconf::upstream_reply get(const zotconf::upstream_options &options,
                                     const std::string &path = "k") {
    upstream from(options, never);
    return from.get(path, 100);
  }
  [[nodiscard]] std::string failure() const { return get(options()).wrong; }

  // The server closes the connection after its alert, which may be lost with the connection.
  static void expect_refusal(const std::string &wrong, const std::string &alert) {
    EXPECT_TRUE(wrong == "the server ended the TLS connection: " + alert ||
                wrong.starts_with("the connection ended without an answer"))
        << wrong;
  }

  const tls_authority::subject good_ = {.name = "server", .names = "IP:127.0.0.1"};
  tls_authority authority_;
  tls_authority other_{"other"};

 private:
  std::unique_ptr<httplib::SSLServer> server_;
  int port_ = 0;
  std::thread thread_;
};

TEST_F(Tls, WithATrustedCertificateBringsTheBody) {
  serve(good_);
  const zotconf::upstream_reply reply = get(options());
  EXPECT_EQ(reply.wrong, "");
  EXPECT_EQ(reply.body, "bytes");
}

TEST_F(Tls, BringsSeveralFiles) {
  serve(good_);
  upstream from(options(), never);
  std::vector<zotconf::wanted_file> files;
  for (int i = 0; i < 50; ++i) {
    files.push_back(wanted(std::to_string(i), 5));
  }
  const result all = fetch(from, files);
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(all.arrived.size(), 50U);
}

TEST_F(Tls, RejectsAnUnknownAuthority) {
  serve(good_);
  zotconf::upstream_options options = this->options();
  options.ca = other_.path();
  EXPECT_EQ(get(options).wrong,
            "the certificate of 127.0.0.1 is not valid: unable to get local issuer certificate");
}

TEST_F(Tls, RejectsAnAuthorityThatTheSystemDoesNotTrust) {
  serve(good_);
  zotconf::upstream_options options = this->options();
  options.ca.clear();
  EXPECT_EQ(get(options).wrong,
            "the certificate of 127.0.0.1 is not valid: unable to get local issuer certificate");
}

TEST_F(Tls, RejectsTheCertificateOfAnotherHost) {
  serve({.name = "server", .names = "DNS:other.example,IP:127.0.0.2"});
  EXPECT_EQ(failure(),
            "the certificate of 127.0.0.1 is not valid: SSL: no alternative "
            "certificate subject name matches target host name '127.0.0.1'");
}

TEST_F(Tls, RejectsAnExpiredCertificate) {
  serve({.name = "server", .names = "IP:127.0.0.1", .valid_until = -60});
  EXPECT_EQ(failure(), "the certificate of 127.0.0.1 is not valid: certificate has expired");
}

TEST_F(Tls, JudgesCertificatesAtTheTimeThatItIsTold) {
  serve(good_);
  zotconf::upstream_options options = this->options();
  constexpr std::time_t year = 31'536'000;
  options.certificate_time = [] { return std::time(nullptr) + year; };
  EXPECT_EQ(get(options).wrong,
            "the certificate of 127.0.0.1 is not valid: certificate has expired");
  options.certificate_time = [] { return std::time_t{1}; };
  EXPECT_EQ(get(options).wrong,
            "the certificate of 127.0.0.1 is not valid: certificate is not yet valid");
  options.certificate_time = [] { return std::time(nullptr); };
  EXPECT_EQ(get(options).body, "bytes");
}

TEST_F(Tls, SendsTheCertificateOfTheClient) {
  serve(good_, &other_);
  other_.issue({.name = "client"});
  zotconf::upstream_options options = this->options();
  options.certificate = other_.certificate_of("client");
  options.key = other_.key_of("client");
  EXPECT_EQ(get(options).body, "bytes");
}

TEST_F(Tls, FindsTheKeyBesideTheCertificate) {
  serve(good_, &other_);
  other_.issue({.name = "client"});
  write_bytes(file("both.pem"),
              read_bytes(other_.certificate_of("client")) + read_bytes(other_.key_of("client")));
  zotconf::upstream_options options = this->options();
  options.certificate = file("both.pem");
  EXPECT_EQ(get(options).body, "bytes");
}

TEST_F(Tls, ReportsAServerThatWantsACertificate) {
  serve(good_, &other_);
  expect_refusal(failure(), "tlsv13 alert certificate required");
}

TEST_F(Tls, ReportsAServerThatRejectsTheCertificate) {
  serve(good_, &other_);
  authority_.issue({.name = "client"});
  zotconf::upstream_options options = this->options();
  options.certificate = authority_.certificate_of("client");
  options.key = authority_.key_of("client");
  expect_refusal(get(options).wrong, "tlsv1 alert unknown ca");
}

TEST_F(Tls, DoesNotFollowARedirectionToHttp) {
  serve(good_);
  EXPECT_EQ(get(options(), "elsewhere").wrong,
            "status 302, a redirection to http://127.0.0.1:1/k, which is not followed");
}

TEST_F(Tls, EndsAHandshakeWhenItIsStopped) {
  const scripted_server server([](scripted_server::connection &with, const std::string &,
                                  unsigned) { return with.send("HTTP/1.1 400 x\r\n\r\n"); });
  const zotconf::upstream_options options = options_for("https://" + server.place());
  upstream from(options, stop_after(1s));
  EXPECT_EQ(from.get("k", 10).wrong, "stopped");
}

TEST(Connecting, ReportsThatNothingAnswers) {
  const scripted_server server(
      [](scripted_server::connection &, const std::string &, unsigned) { return false; });
  zotconf::upstream_options options = options_for("https://" + server.place());
  options.connect_timeout = 300ms;
  options.silence = 100ms;
  upstream from(options, never);
  EXPECT_EQ(from.get("k", 10).wrong,
            "cannot connect to " + server.place() + ": no answer for 300ms");
}

}  // namespace
}  // namespace zot::test
