// SPDX-License-Identifier: Apache-2.0
#include "tools/service/publication_view.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/tools/support/process.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;

const std::string k_path = "file/knowledge/AP/001122334455/latest/001122334455.k";
const std::string file_path = "config/Wlan/a/1";

// Scans often enough for a test.
constexpr zotconf::look_rhythm quick{.between_looks = 10ms,
                                     .between_checks = 10ms,
                                     .between_checks_of_problems = 10ms,
                                     .check_time = 100ms,
                                     .read_time = 100ms,
                                     .rest_after = 60s};

class PublicationView : public testing::Test {
 protected:
  PublicationView() {
    write_bytes(dir_ / "source/Wlan/a", "ssid=a");
    publish_source();
  }

  void publish_source() const {
    if (publish(dir_ / "source", folder_).status != 0) {
      throw std::runtime_error("publish failed");
    }
  }
  // Waits until the only publication meets the condition, and returns it.
  template <class Condition>
  static zotconf::publication_view::row row_when(zotconf::publication_view &view, Condition holds) {
    zotconf::publication_view::row row;
    wait_until(
        [&] {
          const auto seen = view.latest();
          row = seen->rows.empty() ? nullptr : seen->rows[0];
          return row != nullptr && holds(*row);
        },
        "the row that is awaited");
    return row;
  }
  static zotconf::publication_view::row row_with_problem(zotconf::publication_view &view) {
    return row_when(view, [](const auto &row) { return row.problem.has_value(); });
  }

  temp_dir dir_;
  std::string folder_ = dir_ / "pub";
  zotconf::publication_store store_{folder_};
};

TEST_F(PublicationView, AnswersBeforeItHasReadAnything) {
  zotconf::publication_view view(folder_, store_, quick);
  const auto seen = view.latest();
  EXPECT_LE(seen->read, seen->rows.size());
  const auto row = row_when(view, [](const auto &one) { return one.is_read; });
  EXPECT_FALSE(row->problem.has_value());
  EXPECT_EQ(row->entries, 1);
  EXPECT_TRUE(row->checked.has_value());
}

TEST_F(PublicationView, SeesThatAFileIsGoneAndThatItIsBack) {
  zotconf::publication_view view(folder_, store_, quick);
  row_when(view, [](const auto &row) { return row.is_read && !row.problem; });
  std::filesystem::remove(folder_ + "/" + file_path);
  const auto row = row_with_problem(view);
  EXPECT_EQ(row->problem->kind, zotconf::problem_kind::files);
  EXPECT_EQ(row->problem->reason, "config/Wlan/a/1 is missing");
  EXPECT_EQ(row->entries, 1);
  publish_source();
  row_when(view, [](const auto &one) { return !one.problem; });
}

TEST_F(PublicationView, ChecksAnUnchangedPublicationNoSoonerThanItsTimeHasCome) {
  auto slow = quick;
  slow.between_checks = 1h;
  zotconf::publication_view view(folder_, store_, slow);
  row_when(view, [](const auto &row) { return row.is_read; });
  std::filesystem::remove(folder_ + "/" + file_path);
  std::this_thread::sleep_for(300ms);
  EXPECT_FALSE(view.latest()->rows[0]->problem.has_value());
  std::filesystem::last_write_time(folder_ + "/" + k_path,
                                   std::filesystem::file_time_type::clock::now() + 1h);
  EXPECT_TRUE(row_with_problem(view)->problem.has_value());
}

TEST_F(PublicationView, RestsWhileNobodyLooks) {
  auto restful = quick;
  restful.rest_after = 50ms;
  zotconf::publication_view view(folder_, store_, restful);
  row_when(view, [](const auto &row) { return row.is_read && !row.problem; });
  std::this_thread::sleep_for(300ms);
  std::filesystem::remove(folder_ + "/" + file_path);
  std::this_thread::sleep_for(300ms);
  EXPECT_FALSE(view.latest()->rows[0]->problem.has_value());
  EXPECT_TRUE(row_with_problem(view)->problem.has_value());
}

TEST_F(PublicationView, TellsAFolderThatIsGone) {
  zotconf::publication_view view(folder_, store_, quick);
  row_when(view, [](const auto &row) { return row.is_read; });
  std::filesystem::remove_all(folder_);
  wait_until([&] { return view.latest()->problem.has_value(); }, "the problem");
  EXPECT_TRUE(view.latest()->rows.empty());
  publish_source();
  wait_until([&] { return !view.latest()->problem && view.latest()->read == 1; }, "the folder");
}

TEST_F(PublicationView, ForgetsAnElementThatIsGone) {
  zotconf::publication_view view(folder_, store_, quick);
  row_when(view, [](const auto &row) { return row.is_read; });
  std::filesystem::remove_all(folder_ + "/file/knowledge/AP");
  wait_until([&] { return view.latest()->rows.empty(); }, "no row");
  EXPECT_FALSE(view.latest()->problem.has_value());
}

}  // namespace
}  // namespace zot::test
