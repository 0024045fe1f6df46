// SPDX-License-Identifier: Apache-2.0
// Errors of a service must neither change an element nor have lasting effects.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "cycle_checks.hpp"
#include "tests/support/archive.hpp"
#include "tests/support/service.hpp"

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

constexpr const char *latest = "/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF";

std::string url_of(const service &remote, const char *kind) {
  return "\"" + remote.url(latest) + "." + kind + "\"";
}

std::string transfer_text(const service &remote, const char *label, const char *kind,
                          const std::string &reason) {
  return std::string("curl error get ") + label + " from " + url_of(remote, kind) + ": " + reason;
}

std::string http_text(const service &remote, const char *label, const char *kind, int code) {
  return std::string("unable to get ") + label + " from " + url_of(remote, kind) +
         ", http return code = " + std::to_string(code);
}

std::string mismatch_text(const std::string &announced) {
  return "[zot_priv_get_new_k_by_host]: New checksum = " + announced + " not match new K";
}

std::string unpack_text(const element &e) {
  return "[ap_download_gpb]: fail to run \"tar zxvf " + e.tmp_root() + "/gpb.tgz -C " +
         e.tmp_root() + " > /dev/null 2>&1\":";
}

std::string gpb_path(const element &e, const std::string &path) {
  return e.tmp_root() + "//config/" + path;
}

std::string archive_of_all(const publication &published) {
  texts names;
  for (const auto &[path, bytes] : published.files()) {
    names.push_back("/config/" + path);
  }
  return archive_of(published, names);
}

// Cuts off the zeros with which the writer pads an archive: nobody would notice if they were
// missing.
std::string without_padding(std::string archive) {
  archive.erase(archive.find_last_not_of('\0') + 1);
  return archive;
}

void publish_k(service &remote, std::string k) {
  remote.publish(second_configuration().set_k_text(std::move(k)));
}

// One error of the service. `text` is the beginning of the text that the handle keeps.
struct misdeed {
  const char *name;
  std::function<void(service &, const element &)> commit;
  int status;
  std::function<std::string(const service &, const element &)> text;

  friend void PrintTo(const misdeed &what, std::ostream *out) { *out << what.name; }
};

class BadService : public testing::TestWithParam<misdeed> {
 protected:
  // The first configuration is in force when the second one fails.
  void SetUp() override {
    remote.publish(first_configuration());
    ASSERT_EQ(e.get().status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
    in_force = slot_of(e, ZOT_SLOT_CURRENT);
    remote.publish(second_configuration());
    GetParam().commit(remote, e);
  }
  // The same service, working again.
  void recover() {
    remote.clear_overrides();
    remote.publish(second_configuration());
    e.set_port(remote.port());
  }

  service remote;
  element e{element_options{.port = remote.port(), .timeout = 1}};
  zot_slot in_force{};
};

TEST_P(BadService, IsReportedAndHandsOutNothing) {
  const returned_list got = e.get();
  EXPECT_EQ(got.status, GetParam().status);
  EXPECT_EQ(zot_util_get_err(e.handle()), GetParam().status);
  EXPECT_FALSE(got.has_list);
  const std::string want = GetParam().text(remote, e);
  EXPECT_TRUE(got.error_text.starts_with(want)) << got.error_text << "\ninstead of\n" << want;
}

TEST_P(BadService, LeavesTheConfigurationInForceAlone) {
  const auto cache = contents(e.conf_root());
  static_cast<void>(e.get());
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).k, in_force.k);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).gpbs, in_force.gpbs);
  EXPECT_EQ(text_of(in_force.k), first_configuration().k_text());
}

TEST_P(BadService, LeavesNothingToCommit) {
  const auto cache = contents(e.conf_root());
  static_cast<void>(e.get());
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_NOT_READY);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_NOT_READY);
  EXPECT_EQ(contents(e.conf_root()), cache);
}

TEST_P(BadService, DoesNotSpoilTheCachedEntries) {
  static_cast<void>(e.get());
  const returned_list cached = e.get(ZOT_STAT_CACHED);
  EXPECT_EQ(cached.status, ZOT_OK);
  EXPECT_EQ(marks_of(cached), (texts{"Wlan/guest=8", "Zone/hq=8", "Radio/r5=8"}));
}

TEST_P(BadService, DoesNotHinderTheNextCycle) {
  static_cast<void>(e.get());
  recover();
  const returned_list got = e.get();
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

// A port that refuses connections. It is chosen before the element asks, so that the text can name
// it.
const std::uint16_t refusing_port = closed_port();

std::string refused_url(const char *kind) {
  return "\"http://127.0.0.1:" + std::to_string(refusing_port) + latest + "." + kind + "\"";
}

const misdeed transfer_misdeeds[] = {
    {"RefusesConnections", [](service &, const element &e) { e.set_port(refusing_port); },
     ZOT_ERR_REMOTE_UNAVAIL,
     [](const service &, const element &) {
       return "curl error get K.checksum from " + refused_url("checksum") + ": " +
              curl_easy_strerror(CURLE_COULDNT_CONNECT);
     }},
    {"StallsBeforeTheChecksum",
     [](service &remote, const element &) { remote.delay(".checksum", 2500); }, ZOT_ERR_TIMEOUT,
     [](const service &remote, const element &) {
       return transfer_text(remote, "K.checksum", "checksum", "timeout(1)");
     }},
    {"StallsBeforeTheK", [](service &remote, const element &) { remote.delay(".k", 2500); },
     ZOT_ERR_TIMEOUT,
     [](const service &remote, const element &) {
       return transfer_text(remote, "K", "k", "timeout(1)");
     }},
    {"BreaksTheChecksumOff",
     [](service &remote, const element &) { remote.break_off(".checksum", 30); },
     ZOT_ERR_REMOTE_UNAVAIL,
     [](const service &remote, const element &) {
       return transfer_text(remote, "K.checksum", "checksum",
                            curl_easy_strerror(CURLE_PARTIAL_FILE));
     }},
    {"BreaksTheKOff", [](service &remote, const element &) { remote.break_off(".k", 30); },
     ZOT_ERR_REMOTE_UNAVAIL,
     [](const service &remote, const element &) {
       return transfer_text(remote, "K", "k", curl_easy_strerror(CURLE_PARTIAL_FILE));
     }},
    {"BreaksTheArchiveOff", [](service &remote, const element &) { remote.break_off("/tgz", 30); },
     ZOT_ERR_REMOTE_UNAVAIL,
     [](const service &, const element &) {
       return std::string("[ap_download_gpb]: curl error:") +
              curl_easy_strerror(CURLE_PARTIAL_FILE);
     }},
    {"KnowsNoChecksum",
     [](service &remote, const element &) { remote.answer(".checksum", 404, "none"); },
     ZOT_ERR_NOT_FOUND,
     [](const service &remote, const element &) {
       return http_text(remote, "K.checksum", "checksum", 404);
     }},
    {"KnowsNoK", [](service &remote, const element &) { remote.answer(".k", 404, "none"); },
     ZOT_ERR_NOT_FOUND,
     [](const service &remote, const element &) { return http_text(remote, "K", "k", 404); }},
    {"KnowsNoArchive", [](service &remote, const element &) { remote.answer("/tgz", 404, "none"); },
     ZOT_ERR_REMOTE_UNAVAIL,
     [](const service &, const element &) { return std::string("Unable to get remote files\n"); }},
    {"FailsForTheChecksum",
     [](service &remote, const element &) { remote.answer(".checksum", 500, "broken"); },
     ZOT_ERR_GENERIC,
     [](const service &remote, const element &) {
       return http_text(remote, "K.checksum", "checksum", 500);
     }},
    {"FailsForTheK", [](service &remote, const element &) { remote.answer(".k", 500, "broken"); },
     ZOT_ERR_GENERIC,
     [](const service &remote, const element &) { return http_text(remote, "K", "k", 500); }},
    {"FailsForTheArchive",
     [](service &remote, const element &) { remote.answer("/tgz", 500, "broken"); },
     ZOT_ERR_REMOTE_UNAVAIL,
     [](const service &, const element &) { return std::string("Unable to get remote files\n"); }},
};

const misdeed knowledge_misdeeds[] = {
    {"SendsAShortChecksum",
     [](service &remote, const element &) { remote.answer(".checksum", 200, "garbage"); },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) { return std::string("Wrong checksum size: 7"); }},
    {"SendsAChecksumOfSixtyThree",
     [](service &remote, const element &) {
       remote.answer(".checksum", 200, std::string(63, 'a'));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) { return std::string("Wrong checksum size: 63"); }},
    {"SendsAnEmptyChecksum",
     [](service &remote, const element &) { remote.answer(".checksum", 200, ""); }, ZOT_ERR_GENERIC,
     [](const service &remote, const element &) {
       return http_text(remote, "K.checksum", "checksum", 200);
     }},
    {"SendsAnotherChecksum",
     [](service &remote, const element &) {
       remote.answer(".checksum", 200, std::string(64, 'x'));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) { return mismatch_text(std::string(64, 'x')); }},
    {"SendsGarbageForTheK",
     [](service &remote, const element &) { remote.answer(".k", 200, "garbage"); },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return mismatch_text(second_configuration().checksum_text());
     }},
    {"SendsAnEmptyK", [](service &remote, const element &) { remote.answer(".k", 200, ""); },
     ZOT_ERR_GENERIC,
     [](const service &remote, const element &) { return http_text(remote, "K", "k", 200); }},
    {"SendsAKWithBadJson",
     [](service &remote, const element &) { publish_k(remote, "{\"clusterId\":\"c\",\"gpbs\":["); },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return std::string("[zot_priv_chk_vail_k_cont]: unable to parse json str");
     }},
    {"SendsAKWithoutFiles",
     [](service &remote, const element &) { publish_k(remote, R"({"clusterId":"c"})"); },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return std::string("[zot_priv_chk_vail_k_cont]: wrong gpbs format.");
     }},
    {"SendsAKWithoutCluster",
     [](service &remote, const element &) { publish_k(remote, R"({"gpbs":[]})"); },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return std::string("[zot_priv_chk_vail_k_cont]: No clusterId");
     }},
    {"SendsAKWithAFileWithoutPath",
     [](service &remote, const element &) {
       publish_k(remote, R"({"clusterId":"c","gpbs":[{"size":1,"checksum":"00"}]})");
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return std::string("[zot_priv_get_gpb_list_via_k_json]: unable to get path");
     }},
};

const misdeed archive_misdeeds[] = {
    {"SendsGarbageForTheArchive",
     [](service &remote, const element &) { remote.answer("/tgz", 200, "garbage"); },
     ZOT_ERR_CORRUPTED, [](const service &, const element &e) { return unpack_text(e); }},
    {"SendsAnEmptyAnswerForTheArchive",
     [](service &remote, const element &) { remote.answer("/tgz", 200, ""); }, ZOT_ERR_CORRUPTED,
     [](const service &, const element &e) { return unpack_text(e); }},
    {"SendsATruncatedArchive",
     [](service &remote, const element &) {
       const std::string whole = without_padding(archive_of_all(second_configuration()));
       remote.answer("/tgz", 200, whole.substr(0, whole.size() / 2));
     },
     ZOT_ERR_CORRUPTED, [](const service &, const element &e) { return unpack_text(e); }},
    {"SendsAnAlteredArchive",
     [](service &remote, const element &) {
       std::string whole = archive_of_all(second_configuration());
       char &altered = whole[without_padding(whole).size() / 2];
       altered = static_cast<char>(altered ^ 0x5a);
       remote.answer("/tgz", 200, whole);
     },
     ZOT_ERR_CORRUPTED, [](const service &, const element &e) { return unpack_text(e); }},
    {"SendsAnAlteredFile",
     [](service &remote, const element &) {
       remote.publish(second_configuration().damage("Wlan", "guest", "GUEST TWO"));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " +
              sha256_hex("guest two");
     }},
    {"LeavesAFileOut",
     [](service &remote, const element &) {
       remote.answer("/tgz", 200, archive_of_all(second_configuration().remove("Wlan", "guest")));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &e) {
       return "[zot_priv_verify_gpb]:Empty content in " + gpb_path(e, "/Wlan/guest/2");
     }},
    {"SendsAnEmptyFile",
     [](service &remote, const element &) {
       remote.publish(second_configuration().damage("Wlan", "staff", ""));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &e) {
       return "[zot_priv_verify_gpb]:Empty content in " + gpb_path(e, "/Wlan/staff/1");
     }},
    {"SendsAnOversizedFile",
     [](service &remote, const element &) {
       remote.publish(second_configuration().damage("Wlan", "guest", "guest two and more"));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return std::string("[zot_priv_verify_gpb]: wrong GPB size: expect/real size=9/18");
     }},
    {"SendsALink",
     [](service &remote, const element &) {
       remote.answer("/tgz", 200,
                     make_tar_gz({{.path = "config/Wlan/guest/2",
                                   .type = member_type::symlink,
                                   .target = "/etc/passwd"}}));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return std::string("[ap_download_gpb]: archive holds more than GPB files: ");
     }},
    {"SendsAnotherK",
     [](service &remote, const element &) {
       remote.answer("/tgz", 200,
                     make_tar_gz({{.path = "subsys.k", .bytes = third_configuration().k_text()}}));
     },
     ZOT_ERR_CORRUPTED,
     [](const service &, const element &) {
       return std::string("[ap_download_gpb]: archive holds more than GPB files: ");
     }},
};

std::string name_of(const testing::TestParamInfo<misdeed> &info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Transfers, BadService, testing::ValuesIn(transfer_misdeeds), name_of);
INSTANTIATE_TEST_SUITE_P(Knowledge, BadService, testing::ValuesIn(knowledge_misdeeds), name_of);
INSTANTIATE_TEST_SUITE_P(Archives, BadService, testing::ValuesIn(archive_misdeeds), name_of);

}  // namespace
