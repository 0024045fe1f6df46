// SPDX-License-Identifier: Apache-2.0
// Checks that docs/json.md describes the JSON keys of every command.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "tests/tools/support/cached_element.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

void collect_keys(const cJSON *item, std::set<std::string> &keys) {
  for (const cJSON *child = item->child; child != nullptr; child = child->next) {
    if (child->string != nullptr) {
      keys.insert(child->string);
    }
    collect_keys(child, keys);
  }
}

// Of one document, or of several in a row.
std::set<std::string> keys_of(const std::string &text) {
  std::set<std::string> keys;
  const char *rest = text.c_str();
  do {
    const zot::json_tree root(cJSON_ParseWithOpts(rest, &rest, 0));
    if (root == nullptr) {
      throw std::runtime_error("no JSON: " + text);
    }
    collect_keys(root.get(), keys);
    rest += std::strspn(rest, "\n");
  } while (*rest != '\0');
  return keys;
}

std::string section_of(const std::string &command) {
  const std::string document = read_bytes(ZOTCONF_JSON_DOCUMENT);
  const std::string heading = "\n## " + command + "\n";
  const size_t begin = document.find(heading);
  if (begin == std::string::npos) {
    throw std::runtime_error("no section for " + command);
  }
  return document.substr(begin, document.find("\n## ", begin + heading.size()) - begin);
}

// The sections that describe a command: one section may refer to another.
std::string told_for(const std::string &command) {
  if (command == "diff") {
    return section_of("diff") + section_of("show");
  }
  return command == "verify" ? section_of("verify") + section_of("status") : section_of(command);
}

bool is_told(const std::string &text, const std::string &key) {
  return has(text, "`" + key + "`") || has(text, "." + key + "`") || has(text, "`" + key + ".");
}

class JsonDocument : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    publish_source();
    serve();
    ASSERT_EQ(cycle("--commit").status, 0);
    put("Wlan/a", "ssid=b");
    publish_source();
    write_bytes(dir_ / "device/writable/zot/config/Zone/z/1", "broken");
    write_bytes(dir_ / "device/writable/zot/config/stray", "x");
  }
};

TEST_F(JsonDocument, TellsEveryKeyOfEveryCommand) {
  write_bytes(dir_ / "fleet/elements/0A/Wlan/a", "a");
  write_bytes(dir_ / "bad/elements/0A/Wlan/a", "");
  write_bytes(dir_ / "reports/AP/" + index_ + ".json",
              R"({"format":1,"problem":{"text":"get: timeout"}})");
  write_bytes(dir_ / "reports/AP/unknown.json", "");
  const std::vector<std::vector<std::string>> commands = {
      {"publish", dir_ / "source", "--out", dir_ / "other", "--index", "x", "--cluster", "c"},
      {"publish", dir_ / "source", "--out", dir_ / "another", "--index", "x", "--cluster", "c",
       "--dry-run"},
      {"publish", "--fleet", dir_ / "fleet", "--out", dir_ / "third", "--cluster", "c",
       "--dry-run"},
      {"publish", "--fleet", dir_ / "bad", "--out", dir_ / "third", "--cluster", "c"},
      {"prune", dir_ / "pub", "--grace", "0", "--dry-run"},
      {"status"},
      {"verify"},
      {"verify", "--repair", "--index", index_},
      {"show", "current"},
      {"diff", "current", dir_ / "pub"},
      {"explain"},
      {"categories"},
      {"cycle", "--index", index_, "--commit"},
      {"cycle", "--index", "unknown"},
      {"selftest"},
      {"fleet", dir_ / "pub", dir_ / "reports"},
      {"probe", "http://127.0.0.1:" + std::to_string(service_->port()), "--index", "unknown"},
  };
  for (std::vector<std::string> command : commands) {
    command.emplace_back("--json");
    const finished done = run(command);
    const std::string text = told_for(command.front());
    for (const std::string &key : keys_of(done.out)) {
      EXPECT_TRUE(is_told(text, key)) << command.front() << ": " << key;
    }
  }
}

}  // namespace
}  // namespace zot::test
