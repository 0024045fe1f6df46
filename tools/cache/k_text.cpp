// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/k_text.hpp"

#include <array>
#include <ostream>

#include "tools/output/figures.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

template <class T>
std::optional<T> when(bool is_known, const T &value) {
  return is_known ? std::optional<T>(value) : std::nullopt;
}

}  // namespace

std::string named(const stored_k &k) {
  return k.config_id.empty() ? "checksum " + k.checksum : "config ID " + k.config_id;
}

state_text state_of(bool is_present, const std::optional<library_status> &wrong) {
  if (!is_present) {
    return {.word = "absent", .with = colour::dim};
  }
  return wrong ? state_text{.word = "damaged", .with = colour::red}
               : state_text{.word = "good", .with = colour::green};
}

void set_status(json_node into, const char *name, const std::optional<library_status> &status) {
  if (!status) {
    into.set(name, std::optional<std::string>());
    return;
  }
  into.object(name)
      .set("code", status->code)
      .set("name", name_of_status(status->code))
      .set("text", status->text);
}

void set_k(json_node into, const stored_k &k) {
  const bool good = k.is_good();
  into.set("k", k.k.string())
      .set("checksum_file", stated(k.checksum_file.string()))
      .set("config_id", stated(k.config_id))
      .set("cluster", when(good, k.cluster))
      .set("firmware", stated(k.firmware))
      .set("entries", when(good, k.files.size()))
      .set("bytes", when(good, k.size_of_files()))
      .set("checksum", stated(k.checksum))
      .set("written", k.written ? stated(iso_time(*k.written)) : std::nullopt);
}

void print_k(const console &where, const stored_k &k) {
  const std::array<std::pair<std::string_view, std::string>, 8> lines = {
      {{"K:          ", k.k.string()},
       {"config ID:  ", k.config_id},
       {"cluster:    ", k.cluster},
       {"firmware:   ", k.firmware},
       {"entries:    ", std::to_string(k.files.size())},
       {"bytes:      ", std::to_string(k.size_of_files())},
       {"checksum:   ", k.checksum},
       {"written:    ", k.written ? iso_time(*k.written) : ""}}};
  for (const auto &[label, text] : lines) {
    where.out() << where.paint(label, colour::bold) << (text.empty() ? "-" : printable(text))
                << '\n';
  }
}

}  // namespace zotconf
