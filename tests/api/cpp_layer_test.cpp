// SPDX-License-Identifier: Apache-2.0
// The C++ layer against a real service: what a client of zot_conf.hpp relies on.
#include "zot_conf.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ranges>
#include <span>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/element.hpp"
#include "tests/support/service.hpp"

namespace {
using namespace zot::test;

using zotconf::category_set;
using zotconf::change;
using zotconf::generation;
using zotconf::status;

static_assert(std::is_nothrow_move_constructible_v<zotconf::handle>);
static_assert(std::is_nothrow_move_assignable_v<zotconf::handle>);
static_assert(!std::is_copy_constructible_v<zotconf::handle>);
static_assert(std::is_nothrow_move_constructible_v<zotconf::entries>);
static_assert(!std::is_copy_constructible_v<zotconf::entries>);
static_assert(std::ranges::forward_range<zotconf::entries>);
static_assert(std::is_trivially_copyable_v<zotconf::entry>);

struct message {
  std::uint32_t level;
  std::uint32_t topics;
  std::string function;
  long line;
  std::string text;
};

// Folders, environment and a service that publishes two files.
class CppLayer : public testing::Test {
 protected:
  CppLayer() {
    published_.put("Wlan", "a", 1, "ssid=a").put("Zone", "z", 1, "country=DE");
    remote_.publish(published_);
  }

  [[nodiscard]] zotconf::options settings() {
    zotconf::options result{.index = "aabbccddeeff"};
    result.log.level = ZOT_LOG_INFO;
    result.log.function = [this](const zotconf::log_line &line) {
      log_.push_back(
          {line.level, line.topics, std::string(line.function), line.line, std::string(line.text)});
    };
    return result;
  }
  [[nodiscard]] zotconf::handle make_handle() {
    auto made = zotconf::handle::create(settings());
    if (!made) {
      throw std::runtime_error("no handle");
    }
    return std::move(*made);
  }
  [[nodiscard]] static zotconf::entries get(zotconf::handle &from) {
    return from.get(category_set::all(), change::any);
  }
  // Changes Wlan/a, deletes Zone/z and adds Ap/x.
  void publish_changes() {
    published_.put("Wlan", "a", 2, "ssid=b").remove("Zone", "z").put("Ap", "x", 1, "model=x");
    published_.config_id("00000000-0000-0000-0000-000000000002");
    remote_.publish(published_);
  }
  [[nodiscard]] bool has_logged(const std::string &part) const {
    return std::ranges::any_of(
        log_, [&](const message &one) { return one.text.find(part) != std::string::npos; });
  }

  publication published_;
  service remote_;
  element place_{element_options{.port = remote_.port(), .start = false}};
  std::vector<message> log_;
};

std::vector<std::string> listed(const zotconf::entries &list) {
  std::vector<std::string> result;
  for (const zotconf::entry one : list) {
    result.push_back(std::string(one.category_name()) + "/" + std::string(one.key()) + " " +
                     std::string(name_of(one.change())) + " " + std::string(one.text()));
  }
  return result;
}

using texts = std::vector<std::string>;

TEST_F(CppLayer, ListsEntriesWithCategoryKeyChangeAndBytes) {
  zotconf::handle client = make_handle();
  const zotconf::entries list = get(client);
  EXPECT_EQ(list.result(), ZOT_OK);
  EXPECT_EQ(listed(list), (texts{"Wlan/a added ssid=a", "Zone/z added country=DE"}));
}

TEST_F(CppLayer, GivesBytesAsASpan) {
  zotconf::handle client = make_handle();
  const zotconf::entries list = get(client);
  const std::span<const std::byte> bytes = (*list.begin()).bytes();
  ASSERT_EQ(bytes.size(), 6U);
  EXPECT_EQ(bytes[0], std::byte{'s'});
  EXPECT_EQ(bytes[5], std::byte{'a'});
}

TEST_F(CppLayer, GivesNoBytesForADeletedEntry) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.commit(), ZOT_OK);
  publish_changes();
  const zotconf::entries list = client.get({ZOT_CAT_ZONE}, change::deleted);
  EXPECT_EQ(listed(list), (texts{"Zone/z deleted "}));
  EXPECT_TRUE((*list.begin()).bytes().empty());
}

TEST_F(CppLayer, WorksWithRangeAlgorithms) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.commit(), ZOT_OK);
  publish_changes();
  const zotconf::entries list = get(client);
  EXPECT_EQ(std::ranges::distance(list), 3);
  EXPECT_EQ(std::ranges::count(list, change::modified, &zotconf::entry::change), 1);
  const auto zone = std::ranges::find(list, ZOT_CAT_ZONE, &zotconf::entry::category);
  ASSERT_NE(zone, list.end());
  EXPECT_EQ((*zone).key(), "z");
}

TEST_F(CppLayer, ReturnsOnlyTheCategoriesAndChangesAskedFor) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.commit(), ZOT_OK);
  publish_changes();
  EXPECT_EQ(listed(client.get({ZOT_CAT_WLAN, ZOT_CAT_AP}, change::modified | change::added)),
            (texts{"Ap/x added model=x", "Wlan/a modified ssid=b"}));
}

TEST_F(CppLayer, TellsWhetherAVerdictIsAwaited) {
  zotconf::handle client = make_handle();
  EXPECT_FALSE(client.is_new());
  ASSERT_EQ(get(client).result(), ZOT_OK);
  EXPECT_TRUE(client.is_new());
  ASSERT_EQ(client.commit(), ZOT_OK);
  EXPECT_FALSE(client.is_new());
  ASSERT_EQ(get(client).result(), ZOT_OK);
  EXPECT_FALSE(client.is_new());
}

TEST_F(CppLayer, CommitMakesTheConfigurationCurrent) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  EXPECT_EQ(client.commit(), ZOT_OK);
  EXPECT_EQ(read_bytes(place_.conf_root() + "config/Wlan/a/1"), "ssid=a");
  EXPECT_EQ(listed(get(client)), (texts{"Wlan/a unchanged ssid=a", "Zone/z unchanged country=DE"}));
}

TEST_F(CppLayer, CommitWithoutNewsIsNewsAndNoError) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.commit(), ZOT_OK);
  ASSERT_EQ(get(client).result(), ZOT_OK);
  const status done = client.commit();
  EXPECT_EQ(done, ZOT_NO_UPDATE);
  EXPECT_FALSE(done.is_error());
}

TEST_F(CppLayer, CommitBeforeAGetIsRefusedInTheWordsOfTheLibrary) {
  zotconf::handle client = make_handle();
  const status done = client.commit();
  EXPECT_EQ(done, ZOT_ERR_NOT_READY);
  EXPECT_TRUE(done.is_error());
  EXPECT_EQ(done.text(), zot_util_get_err_str(client.c_handle()));
}

TEST_F(CppLayer, GivesTheEntriesInForceBesideTheRefusalOfWhatWasRolledBack) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.commit(), ZOT_OK);
  publish_changes();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.roll_back(), ZOT_OK);
  zotconf::handle restarted = make_handle();
  const zotconf::entries list = get(restarted);
  EXPECT_EQ(list.result(), ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(list.result().text(), "New configuration is still corrupted.");
  // A process that has just started must apply them all.
  EXPECT_EQ(listed(list), (texts{"Wlan/a added ssid=a", "Zone/z added country=DE"}));
  EXPECT_FALSE(restarted.is_new());
}

TEST_F(CppLayer, ReturnsNoEntriesAndTheReasonWhenTheServiceIsGone) {
  zotconf::handle client = make_handle();
  remote_.stop();
  const zotconf::entries list = get(client);
  EXPECT_EQ(list.result(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_TRUE(list.result().text().starts_with("curl error get K.checksum from"))
      << list.result().text();
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.begin(), list.end());
}

TEST_F(CppLayer, KeepsTheStatusOfAFailedGetWhenItsEntriesGo) {
  zotconf::handle client = make_handle();
  remote_.stop();
  static_cast<void>(get(client));
  EXPECT_EQ(client.last_status(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_TRUE(client.last_status().text().starts_with("curl error get K.checksum from"));
}

TEST_F(CppLayer, ReturnsWhatIsCachedWithoutAService) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.commit(), ZOT_OK);
  remote_.stop();
  zotconf::handle restarted = make_handle();
  EXPECT_EQ(std::ranges::distance(restarted.get(category_set::all(), change::cached)), 2);
}

TEST_F(CppLayer, RefusesAGetOfNoChange) {
  zotconf::handle client = make_handle();
  EXPECT_EQ(client.get(category_set::all(), change::none).result(), ZOT_ERR_WRONG_INPUT);
}

TEST_F(CppLayer, KeepsAStatusWhenTheHandleGoesOn) {
  zotconf::handle client = make_handle();
  const status refused = client.commit();
  const std::string text = refused.text();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  EXPECT_EQ(refused.text(), text);
}

TEST_F(CppLayer, KeepsEntriesValidWhenTheHandleIsMoved) {
  zotconf::handle first = make_handle();
  const zotconf::entries list = get(first);
  zotconf::handle second = std::move(first);
  EXPECT_EQ(listed(list), (texts{"Wlan/a added ssid=a", "Zone/z added country=DE"}));
  EXPECT_EQ(second.commit(), ZOT_OK);
}

TEST_F(CppLayer, KeepsEntriesValidWhenTheyAreMoved) {
  zotconf::handle client = make_handle();
  zotconf::entries first = get(client);
  const zotconf::entry one = *first.begin();
  const zotconf::entries second = std::move(first);
  EXPECT_EQ(one.key(), "a");
  EXPECT_EQ(std::ranges::distance(second), 2);
}

TEST_F(CppLayer, FreesEntriesThatOutliveTheirHandle) {
  std::optional<zotconf::handle> client = make_handle();
  const zotconf::entries list = get(*client);
  client.reset();
  EXPECT_EQ((*list.begin()).key(), "a");  // the sanitizers check the rest
}

TEST_F(CppLayer, AnswersForAHandleThatWasMovedFrom) {
  zotconf::handle client = make_handle();
  const zotconf::handle other = std::move(client);
  // NOLINTBEGIN(bugprone-use-after-move): the state after a move is part of the contract
  EXPECT_EQ(client.c_handle(), nullptr);
  EXPECT_EQ(get(client).result(), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(client.commit(), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(client.roll_back(), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(client.last_status().text(), "NULL input");
  EXPECT_EQ(client.metadata_of(generation::current), std::nullopt);
  EXPECT_EQ(client.set_timeout(1), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(client.timeout(), 0U);
  EXPECT_EQ(client.index(), "");
  EXPECT_EQ(client.statistics().bytes_written, 0U);
  EXPECT_FALSE(client.is_new());
  // NOLINTEND(bugprone-use-after-move)
}

TEST_F(CppLayer, LogsToTheCallableWithWhereAndWhat) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  const auto found =
      std::ranges::find(log_, "[zot_conf_get] Start to get new configuration.\n", &message::text);
  ASSERT_NE(found, log_.end());
  EXPECT_EQ(found->level, static_cast<std::uint32_t>(ZOT_LOG_INFO));
  EXPECT_EQ(found->topics, static_cast<std::uint32_t>(ZOT_TOPIC_GENERAL));
  EXPECT_EQ(found->function, "zot_conf_get");
  EXPECT_GT(found->line, 0);
}

TEST_F(CppLayer, LogsStartUpToTheCallable) {
  const zotconf::handle client = make_handle();
  EXPECT_TRUE(has_logged("Start init zot lib."));
}

TEST_F(CppLayer, LogsToTheCallableAfterAMove) {
  zotconf::handle first = make_handle();
  zotconf::handle second = std::move(first);
  log_.clear();
  ASSERT_EQ(get(second).result(), ZOT_OK);
  EXPECT_TRUE(has_logged("Get new configuration: Done"));
}

TEST_F(CppLayer, LetsAHandleLogUntilItIsReplaced) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  ASSERT_EQ(client.set_log_level(ZOT_LOG_DEBUG), ZOT_OK);
  client = make_handle();
  EXPECT_TRUE(has_logged("Free temporary K: Done"))
      << "what the replaced handle says while it is freed";
}

TEST_F(CppLayer, LogsNoMoreThanTheLevelAllows) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(client.set_log_level(ZOT_LOG_ERROR), ZOT_OK);
  EXPECT_EQ(client.log_level(), static_cast<std::uint32_t>(ZOT_LOG_ERROR));
  log_.clear();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  EXPECT_TRUE(
      std::ranges::all_of(log_, [](const message &one) { return one.level == ZOT_LOG_ERROR; }));
}

TEST_F(CppLayer, LogsTheTopicsAskedForOnly) {
  zotconf::options from = settings();
  from.log.topics = ZOT_TOPIC_TRANSFER;
  auto client = zotconf::handle::create(std::move(from));
  ASSERT_TRUE(client);
  ASSERT_EQ(get(*client).result(), ZOT_OK);
  ASSERT_FALSE(log_.empty());
  EXPECT_TRUE(std::ranges::all_of(
      log_, [](const message &one) { return (one.topics & ZOT_TOPIC_TRANSFER) != 0; }));
}

TEST_F(CppLayer, LogsToStandardErrorWithoutACallable) {
  zotconf::options from{.index = "aabbccddeeff"};
  from.log.level = ZOT_LOG_INFO;
  testing::internal::CaptureStderr();
  const bool is_made = zotconf::handle::create(std::move(from)).has_value();
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(is_made);
  EXPECT_NE(text.find("Init. zot lib: Done\n"), std::string::npos) << text;
}

TEST_F(CppLayer, TellsWhyThereIsNoHandle) {
  zotconf::options from = settings();
  from.index = std::string(53, 'i');
  std::string reason;
  EXPECT_FALSE(zotconf::handle::create(std::move(from), &reason));
  EXPECT_EQ(reason, "[zot_conf_init_args] id_len:53 is too long");
}

TEST_F(CppLayer, TellsThatThereIsNoHandleWhenTheReasonIsNotLogged) {
  zotconf::options from = settings();
  from.index = std::string(53, 'i');
  from.log.topics = ZOT_TOPIC_TRANSFER;
  std::string reason;
  EXPECT_FALSE(zotconf::handle::create(std::move(from), &reason));
  EXPECT_EQ(reason, "no handle");
}

TEST_F(CppLayer, NeedsNobodyToHearTheReason) {
  zotconf::options from = settings();
  from.subsystem = std::string(64, 's');
  EXPECT_FALSE(zotconf::handle::create(std::move(from)));
}

TEST_F(CppLayer, ReadsMetadata) {
  zotconf::handle client = make_handle();
  ASSERT_EQ(get(client).result(), ZOT_OK);
  const auto found = client.metadata_of(generation::fetched);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->cluster_id, "cluster-1");
  EXPECT_EQ(found->firmware_version, "1.0.0");
  EXPECT_EQ(found->config_id, "00000000-0000-0000-0000-000000000001");
}

TEST_F(CppLayer, TellsWhyThereIsNoMetadata) {
  zotconf::handle client = make_handle();
  EXPECT_FALSE(client.metadata_of(generation::last));
  EXPECT_EQ(client.last_status(), ZOT_ERR_NO_CACHE);
}

TEST_F(CppLayer, TakesTimeOutsAtCreationAndLater) {
  zotconf::options from = settings();
  from.timeout = 7;
  from.timeout_gpb = 8;
  auto client = zotconf::handle::create(std::move(from));
  ASSERT_TRUE(client);
  EXPECT_EQ(client->timeout(), 7U);
  EXPECT_EQ(client->timeout_gpb(), 8U);
  EXPECT_EQ(client->set_timeout(9), ZOT_OK);
  EXPECT_EQ(client->set_timeout_gpb(10), ZOT_OK);
  EXPECT_EQ(client->timeout(), 9U);
  EXPECT_EQ(client->timeout_gpb(), 10U);
}

TEST_F(CppLayer, KnowsItsIndexAndWhatItRead) {
  zotconf::handle client = make_handle();
  EXPECT_EQ(client.index(), "aabbccddeeff");
  ASSERT_EQ(get(client).result(), ZOT_OK);
  EXPECT_GT(client.statistics().bytes_written, 0U);
}

}  // namespace
