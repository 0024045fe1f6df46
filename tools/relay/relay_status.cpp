// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_status.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string_view>

#include "tools/output/duration.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/probe/service_client.hpp"
#include "utilities/owner.hpp"

namespace zotconf {
namespace {

constexpr std::chrono::seconds patience{5};
constexpr uint64_t most_bytes = uint64_t{1} << 20;
constexpr double largest_exact = 9007199254740992.0;  // every whole number up to it is a double
constexpr size_t label_width = 14;

// Empty if it is null or missing.
std::string text_of(const cJSON *object, const char *name) {
  const char *const text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
  return text == nullptr ? "" : printable(text);
}

// 0 if it is null or missing.
uint64_t number_of(const cJSON *object, const char *name) {
  const cJSON *const item = cJSON_GetObjectItemCaseSensitive(object, name);
  if (cJSON_IsNumber(item) == 0 || item->valuedouble < 0) {
    return 0;
  }
  return static_cast<uint64_t>(std::min(item->valuedouble, largest_exact));
}

// Null if there is no such object.
const cJSON *object_of(const cJSON *object, const char *name) {
  const cJSON *const item = cJSON_GetObjectItemCaseSensitive(object, name);
  return cJSON_IsObject(item) != 0 ? item : nullptr;
}

bool has_control_character(const std::string &text) {
  return std::ranges::any_of(text, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == 0x7f || (byte < 0x20 && c != '\n' && c != '\r' && c != '\t');
  });
}

zot::json_tree parse(const std::string &url, const std::string &body) {
  zot::json_tree tree = parse_json_object(body);
  if (tree == nullptr || has_control_character(body) || !is_utf8(body)) {
    throw std::runtime_error(url + ": the answer is not a JSON object");
  }
  if (object_of(tree.get(), "service") != nullptr) {
    throw std::runtime_error(url + ": the answer is from zotconf serve, not from zotconf relay");
  }
  if (text_of(tree.get(), "state").empty() || text_of(tree.get(), "upstream").empty() ||
      object_of(tree.get(), "element") == nullptr || object_of(tree.get(), "contact") == nullptr) {
    throw std::runtime_error(url + ": the answer is not the state of a relay");
  }
  return tree;
}

class lines {
 public:
  explicit lines(const console &where) : where_(where) {}

  void print(const std::string &label, const std::string &text) const {
    where_.out() << where_.paint(label + ":", colour::bold)
                 << std::string(label_width - label.size() - 1, ' ') << (text.empty() ? "-" : text)
                 << '\n';
  }

 private:
  const console &where_;
};

std::string after(const char *word, const std::string &text) {
  return text.empty() ? "" : word + text;
}

void print_publication(const lines &to, const cJSON *publication) {
  if (publication == nullptr) {
    to.print("publication", "none in service");
    return;
  }
  to.print("publication", counted(number_of(publication, "files"), "file", "files") + ", " +
                              human_bytes(number_of(publication, "bytes")) +
                              after(", in service since ", text_of(publication, "since")));
  to.print("config ID", text_of(publication, "config_id"));
  to.print("K", text_of(publication, "digest"));
  const std::string signer = text_of(publication, "signer");
  to.print("signed by",
           signer.empty() ? "not signed" : signer + after(", ", text_of(publication, "signed_at")));
}

void print_contact(const lines &to, const cJSON *contact) {
  const std::string last = text_of(contact, "last_contact");
  const auto age = std::chrono::seconds(number_of(contact, "age_seconds"));
  to.print("last contact",
           last.empty() ? "none since the start" : last + ", " + duration_text(age) + " before");
  to.print("next attempt", text_of(contact, "next_attempt"));
}

void print_reports(const lines &to, const cJSON *report) {
  if (report == nullptr) {
    return;
  }
  const std::string last = text_of(report, "last_sent");
  to.print("reports", "to " + text_of(report, "url") +
                          (last.empty() ? ", none sent since the start" : ", last sent " + last) +
                          after(", failing: ", text_of(report, "problem")));
}

colour colour_of(const std::string &state) {
  return state == "good" ? colour::green : state == "problem" ? colour::yellow : colour::red;
}

void print_notes(const console &where, const cJSON *notes) {
  for (const cJSON *note = notes == nullptr ? nullptr : notes->child; note != nullptr;
       note = note->next) {
    where.out() << '\n'
                << where.paint("problem:", colour::red) << ' ' << text_of(note, "text")
                << after(", since ", text_of(note, "since")) << '\n'
                << "  " << text_of(note, "advice") << '\n';
  }
}

void print_state(const console &where, const cJSON *state) {
  const lines to(where);
  const cJSON *const who = object_of(state, "element");
  const std::string health = text_of(state, "state");
  to.print("state", where.paint(health, colour_of(health)));
  to.print("element", text_of(who, "subsys") + " " + text_of(who, "index"));
  to.print("upstream", text_of(state, "upstream"));
  print_publication(to, object_of(state, "publication"));
  print_contact(to, object_of(state, "contact"));
  print_reports(to, object_of(state, "report"));
  to.print("relay", after("version ", text_of(state, "version")) +
                        after(", started ", text_of(state, "started")));
  print_notes(where, cJSON_GetObjectItemCaseSensitive(state, "notes"));
}

}  // namespace

int run_relay_status(const std::string &url, const console &where) {
  const std::string path = "/status.json";
  const reply came = service_client(url, patience).get(path, most_bytes);
  const std::string address = (url.ends_with('/') ? url.substr(0, url.size() - 1) : url) + path;
  if (!came.wrong.empty()) {
    throw std::runtime_error(address + ": " + came.wrong);
  }
  const zot::json_tree state = parse(address, came.body);
  if (where.is_json()) {
    where.out() << came.body << (came.body.ends_with('\n') ? "" : "\n");
  } else {
    print_state(where, state.get());
  }
  return text_of(state.get(), "state") == "good" ? exit_success : exit_relay_problem;
}

}  // namespace zotconf
