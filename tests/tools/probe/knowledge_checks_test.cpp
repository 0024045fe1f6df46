// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/knowledge_checks.hpp"

#include "tests/tools/probe/deviating_service.hpp"

namespace zot::test {
namespace {

const std::string other_digits(64, 'a');

class ProbeOfKnowledge : public DeviatingService {
 protected:
  void expect_bad_checksum(const std::string &text, const std::string &found) {
    published_.set_checksum_text(text);
    expect_failure({"checksum file"}, found);
  }
  // Lets a test answer the requests for the checksum file.
  void deviate_for_checksum(const std::function<void(httplib::Response &)> &respond) {
    deviate_ = [this, respond](const probe_call &asked, httplib::Response &answer) {
      if (asked.path != checksum_path_) {
        return false;
      }
      respond(answer);
      return true;
    };
  }
  // Lets the nth request for K get another K.
  void deviate_for_k(const std::function<bool(int)> &is_other) {
    deviate_ = [this, is_other, nth = 0](const probe_call &asked,
                                         httplib::Response &answer) mutable {
      return asked.path == k_path_ && is_other(++nth) &&
             answer_with(answer, 200, published_.k_text() + "\n");
    };
  }
};

TEST_F(ProbeOfKnowledge, ReportsAChecksumOf63Digits) {
  expect_bad_checksum(std::string(63, 'a') + "\n", "the file begins with 63 such digits");
}

TEST_F(ProbeOfKnowledge, ReportsAChecksumInUpperCase) {
  expect_bad_checksum(std::string(64, 'A') + "\n", "the file begins with 0 such digits");
}

TEST_F(ProbeOfKnowledge, ReportsWhatFollowsTheDigits) {
  const std::string found = "after the digits there is something else than one newline";
  for (const std::string rest : {"\r\n", "  guest.k\n", "\n\n"}) {
    expect_bad_checksum(other_digits + rest, found);
  }
}

TEST_F(ProbeOfKnowledge, ReportsAnEmptyChecksumFile) {
  expect_bad_checksum("", "GET " + checksum_path_ + ": an empty body");
}

TEST_F(ProbeOfKnowledge, ReportsARedirection) {
  deviate_for_checksum([](httplib::Response &answer) { answer.set_redirect("/elsewhere"); });
  expect_failure({"checksum file"},
                 "GET " + checksum_path_ + ": status 302, a redirection to http://127.0.0.1:");
}

TEST_F(ProbeOfKnowledge, ReportsASlowAnswer) {
  timeout_ = "2";
  deviate_for_checksum([this](httplib::Response &) { never_answer(); });
  expect_failure({"checksum file"}, "GET " + checksum_path_ + ": no complete answer within 2 s");
}

TEST_F(ProbeOfKnowledge, ReportsAnEndlessBody) {
  deviate_for_checksum([](httplib::Response &answer) {
    answer.set_chunked_content_provider("text/plain", [](size_t, httplib::DataSink &sink) {
      const std::string digits(4096, 'a');
      return sink.write(digits.data(), digits.size());
    });
  });
  expect_failure({"checksum file"}, "GET " + checksum_path_ + ": a body of more than 64.0 KiB");
}

TEST_F(ProbeOfKnowledge, ReportsEndlessHeaders) {
  deviate_for_checksum([](httplib::Response &answer) {
    for (int header = 0; header < 70; ++header) {
      answer.set_header("X-Header-" + std::to_string(header), std::string(4096, 'x'));
    }
  });
  expect_failure({"checksum file"}, "GET " + checksum_path_ + ": headers of more than 256.0 KiB");
}

TEST_F(ProbeOfKnowledge, ReportsABodyThatIsCutOff) {
  deviate_for_checksum([](httplib::Response &answer) {
    answer.set_content_provider(65, "text/plain", [](size_t, size_t, httplib::DataSink &sink) {
      sink.write("abc", 3);
      return false;
    });
  });
  expect_failure({"checksum file"}, "GET " + checksum_path_ + ": no complete answer: ");
}

TEST_F(ProbeOfKnowledge, ReportsAPageInPlaceOfK) {
  deviate_ = [this](const probe_call &asked, httplib::Response &answer) {
    return asked.path == k_path_ && answer_with(answer, 404, "<html>not found</html>");
  };
  expect_failure({"knowledge file"}, "GET " + k_path_ + ": status 404");
}

TEST_F(ProbeOfKnowledge, ReportsAKThatTheLibraryRefuses) {
  for (const std::string k : {"no JSON", R"({"gpbs": []})", R"({"clusterId": "c"})"}) {
    published_.set_k_text(k);
    expect_failure({"knowledge file"}, "the library refuses K: ");
  }
}

TEST_F(ProbeOfKnowledge, ReportsAPathThatLeadsOutOfTheFolder) {
  published_.set_k_text(R"({"clusterId": "c", "gpbs": [{"path": "/Wlan/../../1", "size": 1,
    "checksum": ")" + other_digits +
                        "\"}]}");
  expect_failure({"knowledge file"}, "K names the path /Wlan/../../1");
}

TEST_F(ProbeOfKnowledge, ReportsAKThatIsNotTheAnnouncedOne) {
  published_.set_checksum_text(other_digits + "\n");
  expect_failure({"match", "polls"}, "the checksum file announces " + other_digits +
                                         ", and K has " + sha256_hex(published_.k_text()));
}

TEST_F(ProbeOfKnowledge, ReportsAKThatDiffersTheSecondTime) {
  deviate_for_k([](int nth) { return nth == 2; });
  expect_failure({"repeated"}, "K has changed");
}

TEST_F(ProbeOfKnowledge, ReportsAChecksumThatDiffersTheSecondTime) {
  int nth = 0;
  deviate_for_checksum([&](httplib::Response &answer) {
    ++nth;
    answer_with(answer, 200, nth == 2 ? other_digits : published_.checksum_text());
  });
  expect_failure({"repeated"}, "the checksum file has changed");
}

TEST_F(ProbeOfKnowledge, ReportsAnAnswerForAnUnknownIndex) {
  for (const int status : {200, 204, 500}) {
    deviate_ = [&](const probe_call &asked, httplib::Response &answer) {
      return asked.path.ends_with("/ZOTCONF-PROBE.k") &&
             answer_with(answer, status, status == 204 ? "" : "K");
    };
    expect_failure({"unknown index"},
                   "GET /file/knowledge/AP/ZOTCONF-PROBE/latest/ZOTCONF-PROBE.k: status " +
                       std::to_string(status));
  }
}

TEST_F(ProbeOfKnowledge, AcceptsOnePairThatDoesNotMatch) {
  deviate_for_k([](int nth) { return nth == 4; });
  EXPECT_EQ(probe().status, 0);
}

TEST_F(ProbeOfKnowledge, ReportsTwoPairsInARowThatDoNotMatch) {
  deviate_for_k([](int nth) { return nth == 4 || nth == 5; });
  expect_failure({"polls"}, "the checksum file announces ");
}

}  // namespace
}  // namespace zot::test
