// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/probe.hpp"

#include <csignal>

#include "tests/tools/probe/deviating_service.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

class Probe : public DeviatingService {};

TEST_F(Probe, PassesWithZotconfServe) {
  write_bytes(dir_ / "source/Wlan/guest", "ssid=guest");
  write_bytes(dir_ / "source/Zone/z", "country=DE");
  ASSERT_EQ(publish(dir_ / "source", dir_ / "pub").status, 0);
  const serving service(dir_ / "pub");
  const std::string url = "http://127.0.0.1:" + std::to_string(service.port()) + "/";
  const finished done = run_zotconf({"probe", url, "--index", "001122334455"}, variables());
  EXPECT_EQ(done.status, 0) << done.out;
  EXPECT_EQ(done.err, "");
  EXPECT_TRUE(has(done.out, "\nprobe: 18 of 18 checks passed, 0 failed, 0 not run\n")) << done.out;
  EXPECT_TRUE(std::filesystem::is_empty(temporary_));
}

TEST_F(Probe, PassesWithChunkedAnswers) {
  deviate_ = [this](const probe_call &asked, httplib::Response &answer) {
    const bool is_k = asked.path == k_path_;
    if (!is_k && asked.path != checksum_path_) {
      return false;
    }
    const std::string text = is_k ? published_.k_text() : published_.checksum_text();
    answer.set_chunked_content_provider("text/plain", [text](size_t, httplib::DataSink &sink) {
      sink.write(text.data(), 10);
      sink.write(text.data() + 10, text.size() - 10);
      sink.done();
      return true;
    });
    return true;
  };
  EXPECT_EQ(probe().status, 0);
}

TEST_F(Probe, AsksNothingOfAServiceWhoseKNamesNoFile) {
  published_.clear();
  const finished done = probe();
  EXPECT_EQ(done.status, 0) << done.out;
  EXPECT_TRUE(has(done.out, "\none file: not run: K names no file\n")) << done.out;
  EXPECT_TRUE(has(done.out, "\nprobe: 14 of 18 checks passed, 0 failed, 4 not run\n")) << done.out;
}

TEST_F(Probe, PrintsJsonLines) {
  deviate_ = [this](const probe_call &asked, httplib::Response &answer) {
    return asked.path == k_path_ && answer_with(answer, 503, "");
  };
  const finished done = probe({"--json"});
  std::istringstream lines(done.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(json_value(line)["check"].text(), "connection");
  EXPECT_EQ(json_value(line)["result"].text(), "passed");
  EXPECT_TRUE(json_value(line)["found"].is_null());
  std::getline(lines, line);
  std::getline(lines, line);
  EXPECT_EQ(json_value(line)["check"].text(), "knowledge_file");
  EXPECT_EQ(json_value(line)["result"].text(), "failed");
  EXPECT_TRUE(json_value(line)["expected"].text().starts_with("GET of K"));
  EXPECT_EQ(json_value(line)["found"].text(), "GET " + k_path_ + ": status 503");
  while (std::getline(lines, line) && !has(line, "first_failed")) {
  }
  EXPECT_EQ(json_value(line)["checks"].number(), 18);
  EXPECT_EQ(json_value(line)["failed"].number(), 1);
  EXPECT_EQ(json_value(line)["first_failed"].text(), "knowledge_file");
}

TEST_F(Probe, RefusesWrongUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {"probe"},
      {"probe", "http://127.0.0.1"},
      {"probe", "--index", "x"},
      {"probe", "https://127.0.0.1", "--index", "x"},
      {"probe", "http://127.0.0.1", "--index", "x/y"},
      {"probe", "http://127.0.0.1", "--index", "x", "--polls", "0"},
      {"probe", "http://127.0.0.1", "--index", "x", "--timeout", "0"}};
  for (const std::vector<std::string> &words : wrong) {
    EXPECT_EQ(run_zotconf(words).status, 2) << words.back();
  }
}

TEST_F(Probe, EndsAtASignalAndRemovesItsFiles) {
  deviate_ = [this](const probe_call &asked, httplib::Response &) {
    if (asked.path == k_path_) {
      never_answer();
    }
    return false;
  };
  serve();
  background running(args(), variables());
  running.wait_for("checksum file: ok: ");
  running.send(SIGTERM);
  EXPECT_EQ(running.wait(), 1);
  EXPECT_EQ(running.err(), "zotconf: probe: interrupted\n");
  EXPECT_TRUE(std::filesystem::is_empty(temporary_));
}

TEST_F(Probe, ReportsAServiceThatDoesNotListen) {
  serve();
  server_.stop();
  const std::string report = expect_failures({"connection"});
  EXPECT_TRUE(has(report, "; found no connection: ")) << report;
  EXPECT_TRUE(has(report, " 17 not run\n")) << report;
}

// One thread serves one connection until it ends.
TEST_F(Probe, ReportsAServiceThatOtherConnectionsBlock) {
  timeout_ = "2";
  server_.new_task_queue = [] { return new httplib::ThreadPool(1); };
  expect_failure({"idle connection", "half request", "half body"},
                 "GET " + checksum_path_ + ": no complete answer within 2 s");
}

}  // namespace
}  // namespace zot::test
