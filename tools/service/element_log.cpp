// SPDX-License-Identifier: Apache-2.0
#include "tools/service/element_log.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "zot_conf.h"

namespace zotconf {
namespace {

std::string name_in_log(const element &who) {
  return who.subsys + "/" + who.index;
}

// publish writes the config ID before the list of files. Only the beginning of K is read, because K
// may be long and the thread that sends it would wait.
std::string leading_config_id(int k_file) {
  static constexpr std::string_view member = "\"configId\"";
  std::array<char, 2048> begin{};
  const ssize_t got = ::pread(k_file, begin.data(), begin.size(), 0);
  std::string_view text(begin.data(), got > 0 ? static_cast<size_t>(got) : 0);
  text = text.substr(0, text.find("\"gpbs\""));
  const size_t at = text.find(member);
  if (at == std::string_view::npos) {
    return "";
  }
  text.remove_prefix(at + member.size());
  const size_t open = text.find('"');
  const size_t close = open == std::string_view::npos ? open : text.find('"', open + 1);
  if (close == std::string_view::npos ||
      text.substr(0, open).find_first_not_of(": \t\r\n") != std::string_view::npos) {
    return "";
  }
  const std::string_view id = text.substr(open + 1, close - open - 1);
  return check_uuid(id).empty() ? std::string(id) : "";
}

}  // namespace

// Returns the entry of an element and moves it to the front. The caller holds the mutex.
element_fetches &element_log::touch(const std::string &name, const std::string &client) {
  const auto known = sent_by_name_.find(name);
  if (known != sent_by_name_.end()) {
    sent_.splice(sent_.begin(), sent_, known->second);
  } else {
    if (sent_.size() >= kept_.elements) {
      counted_.since = std::max(counted_.since, sent_.back().asked + 1);
      ++counted_.forgotten;
      sent_by_name_.erase(sent_.back().name);
      sent_.pop_back();
    }
    sent_.push_front({.name = name, .asked = 0, .fetches = {}});
    sent_by_name_.emplace(name, sent_.begin());
  }
  sent_.front().asked = std::time(nullptr);
  sent_.front().fetches.client = client;
  return sent_.front().fetches;
}

void element_log::add_checksum(const element &who, const std::string &client) {
  const std::scoped_lock guard(mutex_);
  touch(name_in_log(who), client).checksum_sent = std::time(nullptr);
}

void element_log::add_k(const element &who, const std::string &client, int k_file,
                        const std::optional<std::string> &announced) {
  std::string config_id = leading_config_id(k_file);
  const std::scoped_lock guard(mutex_);
  element_fetches &fetches = touch(name_in_log(who), client);
  fetches.k_sent = std::time(nullptr);
  fetches.k_checksum = announced ? announced->substr(0, ZOT_CHECKSUM_LEN) : "";
  fetches.k_config_id = std::move(config_id);
}

void element_log::add_refused(const element &who, const std::string &client) {
  const std::scoped_lock guard(mutex_);
  refused_.remove_if([&who](const refused_element &other) {
    return other.who.subsys == who.subsys && other.who.index == who.index;
  });
  refused_.push_front({.who = who, .asked = std::time(nullptr), .client = client});
  if (refused_.size() > kept_.refused) {
    refused_.pop_back();
  }
}

std::optional<element_fetches> element_log::fetches_of(const element &who) const {
  const std::scoped_lock guard(mutex_);
  const auto known = sent_by_name_.find(name_in_log(who));
  return known == sent_by_name_.end() ? std::nullopt : std::optional(known->second->fetches);
}

fetch_state element_log::state_of(const element &who, std::string_view checksum) const {
  const std::scoped_lock guard(mutex_);
  const auto known = sent_by_name_.find(name_in_log(who));
  if (known == sent_by_name_.end()) {
    return fetch_state::never;
  }
  const element_fetches &fetches = known->second->fetches;
  if (!fetches.k_sent) {
    return fetch_state::asked;
  }
  return fetches.k_checksum == checksum ? fetch_state::up_to_date : fetch_state::older;
}

std::vector<refused_element> element_log::refused(std::time_t since) const {
  const std::scoped_lock guard(mutex_);
  std::vector<refused_element> found;
  std::ranges::copy_if(refused_, std::back_inserter(found),
                       [since](const refused_element &one) { return one.asked >= since; });
  return found;
}

element_log::extent element_log::counted() const {
  const std::scoped_lock guard(mutex_);
  return counted_;
}

}  // namespace zotconf
