// SPDX-License-Identifier: Apache-2.0
#include "tools/service/advice.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

publication_summary with_problem(problem_kind kind) {
  publication_summary summary;
  summary.who = {.subsys = "AP", .index = "001122334455"};
  summary.problem = publication_problem{kind, "reason", -8};
  return summary;
}

publication_summary with_fault(file_fault_kind kind) {
  publication_summary summary = with_problem(problem_kind::files);
  summary.faults = {{kind, "config/Wlan/a/1", "text"}};
  return summary;
}

TEST(Advice, SaysOneSentenceAboutEachProblem) {
  for (const auto kind :
       {problem_kind::folder_name, problem_kind::k_file, problem_kind::checksum_file,
        problem_kind::k_content, problem_kind::files, problem_kind::not_published}) {
    const problem_advice advice = advice_for(with_problem(kind), "/pub");
    EXPECT_TRUE(advice.sentence.ends_with("."));
    EXPECT_TRUE(advice.command.starts_with("zotconf publish SRC --out /pub "));
  }
}

TEST(Advice, RepeatsInItsCommandWhatKSays) {
  publication_summary summary = with_fault(file_fault_kind::missing);
  summary.cluster = "cluster-1";
  summary.config_id = "3f2504e0-4f89-41d3-9a0c-0305e82c3301";
  summary.firmware = "7.1 'beta'";
  EXPECT_EQ(advice_for(summary, "/my pub").command,
            "zotconf publish SRC --out '/my pub' --subsys AP --index 001122334455 --cluster "
            "cluster-1 --config-id 3f2504e0-4f89-41d3-9a0c-0305e82c3301 --firmware "
            "'7.1 '\\''beta'\\'''");
}

TEST(Advice, NamesNoFolderThatIsNoElement) {
  publication_summary summary = with_problem(problem_kind::folder_name);
  summary.who.index = "$(reboot)";
  EXPECT_EQ(advice_for(summary, "/pub").command,
            "zotconf publish SRC --out /pub --subsys SUBSYS --index INDEX --cluster CLUSTER");
}

TEST(Advice, DependsOnWhatIsWrongWithAFile) {
  EXPECT_EQ(advice_for(with_fault(file_fault_kind::unreadable), "/pub").command,
            "chmod -R a+rX -- /pub/config");
  EXPECT_NE(advice_for(with_fault(file_fault_kind::not_regular), "/pub").sentence.find("Remove"),
            std::string::npos);
  EXPECT_NE(advice_for(with_fault(file_fault_kind::missing), "/pub").sentence.find("writes"),
            std::string::npos);
}

}  // namespace
}  // namespace zotconf
