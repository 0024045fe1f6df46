// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/archive_requests.hpp"

#include "tests/tools/probe/deviating_service.hpp"

namespace zot::test {
namespace {

class ProbeOfArchives : public DeviatingService {
 protected:
  // Answers the request for all files.
  void deviate_for_all(const std::function<void(httplib::Response &)> &respond) {
    deviate_ = [respond](const probe_call &asked, httplib::Response &answer) {
      if (asked.names.size() != 3) {
        return false;
      }
      respond(answer);
      return true;
    };
  }
  void expect_bad_archive(const std::string &bytes, const std::string &found) {
    deviate_for_all([&](httplib::Response &answer) { answer_with(answer, 200, bytes); });
    expect_failure({"all files"}, found);
  }
  // Answers requests with such a body.
  void deviate_for_body(const std::function<bool(const std::string &)> &is_one, int status) {
    deviate_ = [is_one, status](const probe_call &asked, httplib::Response &answer) {
      return asked.path == "/tgz" && is_one(asked.body) && answer_with(answer, status, "");
    };
  }
  [[nodiscard]] static std::vector<member> members() {
    return {{.path = "config/Wlan/guest/1", .bytes = "ssid=guest"},
            {.path = "config/Wlan/office/2", .bytes = "ssid=office"},
            {.path = "config/Zone/z/7", .bytes = "country=DE"}};
  }
  [[nodiscard]] static std::string with(const member &last) {
    std::vector<member> all = members();
    all.push_back(last);
    return make_tar_gz(all);
  }
};

TEST_F(ProbeOfArchives, AcceptsFoldersAndNamesWithALeadingDot) {
  deviate_for_all([](httplib::Response &answer) {
    std::vector<member> all = {{.path = "./", .type = member_type::dir},
                               {.path = "./config/", .type = member_type::dir},
                               {.path = "./config/Other/", .type = member_type::dir}};
    for (member each : members()) {
      each.path.insert(0, "./");
      all.push_back(each);
    }
    answer_with(answer, 200, make_tar_gz(all));
  });
  EXPECT_EQ(probe().status, 0);
}

TEST_F(ProbeOfArchives, ReportsAMissingFile) {
  std::vector<member> all = members();
  all.pop_back();
  expect_bad_archive(make_tar_gz(all), "config/Zone/z/7 is missing");
}

TEST_F(ProbeOfArchives, ReportsAnExtraFile) {
  expect_bad_archive(with({.path = "config/Wlan/guest/2", .bytes = "x"}),
                     "config/Wlan/guest/2 was not requested");
  expect_bad_archive(with({.path = "gpb/other", .bytes = "x"}), "gpb/other was not requested");
}

TEST_F(ProbeOfArchives, ReportsAFileWithOtherBytes) {
  for (const std::string bytes : {"country=FR", "country=D", "country=DEU", ""}) {
    std::vector<member> all = members();
    all.back().bytes = bytes;
    expect_bad_archive(make_tar_gz(all), "config/Zone/z/7 is not the file that K states: ");
  }
}

TEST_F(ProbeOfArchives, ReportsAMemberThatIsNoPlainFile) {
  for (const member_type type :
       {member_type::symlink, member_type::hardlink, member_type::fifo, member_type::chardev}) {
    std::vector<member> all = members();
    all.back() = {.path = all.back().path, .type = type, .target = "config/Wlan/guest/1"};
    expect_bad_archive(make_tar_gz(all), "config/Zone/z/7 is neither a plain file nor a folder");
  }
}

TEST_F(ProbeOfArchives, ReportsAFileWithASetIdBit) {
  for (const unsigned mode : {04644U, 02644U}) {
    std::vector<member> all = members();
    all.back().mode = mode;
    expect_bad_archive(make_tar_gz(all), "config/Zone/z/7 has a set-user-ID or set-group-ID bit");
  }
}

TEST_F(ProbeOfArchives, ReportsAFolderThatIsNotBelowConfig) {
  std::string deep = "config";
  for (int level = 0; level < 64; ++level) {
    deep += "/d";
  }
  for (const std::string &path : {std::string("other/"), std::string("config/../other/"),
                                  std::string("configuration/"), deep + "/"}) {
    expect_bad_archive(with({.path = path, .type = member_type::dir}),
                       "the folder " + path + " is not below config");
  }
}

TEST_F(ProbeOfArchives, ReportsAnArchiveThatIsNotCompressedWithGzip) {
  write_bytes(dir_ / "archive.gz", make_tar_gz(members()));
  ASSERT_EQ(std::system(("gunzip " + dir_ / "archive.gz").c_str()), 0);
  expect_bad_archive(read_bytes(dir_ / "archive"),
                     "cannot read the archive: it is not compressed with gzip");
  expect_bad_archive("no archive", "cannot read the archive: ");
}

TEST_F(ProbeOfArchives, ReportsAnArchiveThatIsCutOff) {
  published_.put("Zone", "z", 7, noise(100000));
  std::vector<member> all = members();
  all.back().bytes = noise(100000);
  expect_bad_archive(make_tar_gz(all).substr(0, 50000), "cannot read the archive: ");
}

TEST_F(ProbeOfArchives, ReportsAnArchiveThatIsTooLarge) {
  expect_bad_archive(with({.path = "config/Wlan/noise/1", .bytes = noise(200000)}),
                     "POST /tgz: a body of more than 88.0 KiB");
  expect_bad_archive(with({.path = "config/Zone/z/7", .bytes = std::string(200000, 'x')}),
                     "config/Zone/z/7 is larger than the whole archive may be");
}

TEST_F(ProbeOfArchives, ReportsAnotherStatusThan200) {
  deviate_for_all([](httplib::Response &answer) { answer_with(answer, 500, ""); });
  expect_failure({"all files"}, "POST /tgz: status 500");
}

TEST_F(ProbeOfArchives, ReportsAServiceThatStopsSending) {
  timeout_ = "1";
  deviate_for_all([this](httplib::Response &) { never_answer(); });
  expect_failure({"all files"}, "POST /tgz: nothing more for 12 s");
}

TEST_F(ProbeOfArchives, ReportsAServiceThatSendsAllFilesWhateverIsRequested) {
  deviate_ = [](const probe_call &asked, httplib::Response &answer) {
    return asked.path == "/tgz" && answer_with(answer, 200, make_tar_gz(members()));
  };
  const std::string report =
      expect_failures({"one file", "double slashes", "no files", "empty body", "expect continue",
                       "large body", "missing file"});
  EXPECT_TRUE(has(report, "; found config/Wlan/office/2 was not requested (")) << report;
  EXPECT_TRUE(has(report, "; found POST /tgz: status 200 (")) << report;
}

TEST_F(ProbeOfArchives, ReportsAServiceThatTakesTwoSlashesAsTwo) {
  deviate_for_body([](const std::string &body) { return has(body, "/config//"); }, 404);
  const std::string report =
      expect_failures({"all files", "one file", "double slashes", "expect continue", "large body"});
  EXPECT_TRUE(has(report,
                  "; found /config//Zone/z/7: POST /tgz: status 404; with one slash the "
                  "file came ("))
      << report;
}

TEST_F(ProbeOfArchives, ReportsThatTheSlashesAreNotTheReason) {
  deviate_for_body([](const std::string &body) { return !has(body, "guest"); }, 500);
  const std::string report = expect_failures({"double slashes", "no files", "empty body"});
  EXPECT_TRUE(has(report, "; nor did the file come with one slash (")) << report;
}

TEST_F(ProbeOfArchives, ReportsAServiceThatRefusesAnEmptyList) {
  deviate_for_body([](const std::string &body) { return body == R"({"files": []})"; }, 400);
  expect_failure({"no files"}, "POST /tgz: status 400");
}

TEST_F(ProbeOfArchives, ReportsAServiceThatRefusesAnEmptyBody) {
  deviate_for_body([](const std::string &body) { return body.empty(); }, 400);
  expect_failure({"empty body"}, "POST /tgz: status 400");
}

TEST_F(ProbeOfArchives, ReportsAServiceThatDoesNotContinue) {
  server_.set_expect_100_continue_handler([](const httplib::Request &asked, httplib::Response &) {
    return std::stoul(asked.get_header_value("Content-Length")) < 1000 ? 500 : 100;
  });
  expect_failure({"expect continue"}, "POST /tgz: no complete answer: ");
}

TEST_F(ProbeOfArchives, ReportsAServiceThatRefusesALargeBody) {
  deviate_for_body([](const std::string &body) { return body.size() > 1000000; }, 413);
  expect_failure({"large body"}, "POST /tgz: status 413");
}

TEST_F(ProbeOfArchives, ReportsAServiceThatLeavesMissingFilesOut) {
  deviate_ = [this](const probe_call &asked, httplib::Response &answer) {
    return asked.path == "/tgz" && answer_with(answer, 200, archive_of(published_, asked.names));
  };
  expect_failure({"missing file"}, "POST /tgz: status 200");
}

}  // namespace
}  // namespace zot::test
