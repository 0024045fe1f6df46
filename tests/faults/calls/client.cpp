// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/client.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>

namespace zot::test {
namespace {

constexpr const char *sub_idx = "aabbccddeeff";

void write_text(gate_page &page, const std::string &text) {
  const std::size_t size = std::min(text.size(), gate_page::text_size - 1);
  std::memcpy(page.text, text.data(), size);
  page.text[size] = '\0';
}

std::string with_status(const session &client, const std::string &what, int status) {
  return what + ": " + std::to_string(status) + ": " + client.error_text();
}

bool is_deleted(const returned_entry &entry) {
  return (entry.stat & ZOT_STAT_DELETED) != 0;
}

}  // namespace

void require(bool holds, const std::string &text) {
  if (!holds) {
    throw std::runtime_error(text);
  }
}

bool session::start() {
  ::setenv("ZOT_PREFIX_CONF_ROOT", (root_ + "/conf").c_str(), 1);
  ::setenv("ZOT_PREFIX_TMP_ROOT", (root_ + "/scratch").c_str(), 1);
  ::unsetenv("ZOT_DEV_PATH");
  zot_parm_all parm{};
  parm.timeout = timeout;
  parm.timeout_gpb = timeout;
  parm.log_ctl = log_.ctl(ZOT_LOG_INFO);
  handle_.reset(zot_conf_init_args("AP", sub_idx, std::strlen(sub_idx), parm));
  return handle_ != nullptr;
}

returned_list session::get_from(std::uint16_t port, std::uint32_t mask) {
  ::setenv("ZOT_REMOTE_PORT", std::to_string(port).c_str(), 1);
  return test::get(handle(), mask);
}

returned_list session::get(char letter, std::uint32_t mask) {
  return get_from(offered_.port(letter), mask);
}

returned_list session::get_cached() {
  return get(none, every_change | ZOT_STAT_CACHED);
}

char session::in_force() const {
  return letter_of_k(handle()->slot[ZOT_SLOT_CURRENT].k);
}

std::string session::error_text() const {
  return zot_util_get_err_str(handle());
}

void start(session &client) {
  require(client.start(), "no handle");
}

void get_whole(session &client, char letter) {
  const returned_list got = client.get(letter);
  require(got.status == ZOT_OK, with_status(client, "get", got.status) + ": " + got.error_text);
  require(letter_of_entries(got) == letter, "a get returned another configuration");
}

void commit_whole(session &client, char letter) {
  const int status = client.commit();
  require(status == ZOT_OK || status == ZOT_NO_UPDATE, with_status(client, "commit", status));
  require(client.in_force() == letter, "another configuration is in force after a commit");
}

char check_in_force(session &client, const std::string &in_memory, const std::string &returned) {
  const returned_list cached = client.get_cached();
  require(cached.status == ZOT_OK || cached.status == ZOT_ERR_NO_CACHE,
          "cached get: " + std::to_string(cached.status) + ": " + cached.error_text);
  const char letter = letter_of_entries(cached);
  const char in_force = client.in_force();
  require(in_force != none || std::ranges::none_of(cached.entries, is_deleted),
          "entries are told to be deleted while nothing is in force");
  require(
      (letter == none) == (cached.status == ZOT_ERR_NO_CACHE),
      std::string("a cached get returned ") + letter + " with " + std::to_string(cached.status));
  require(returned.find(letter) != std::string::npos,
          std::string("a cached get returned ") + letter + ", none of " + returned);
  require(in_memory.find(in_force) != std::string::npos,
          std::string("in force in memory is ") + in_force + ", none of " + in_memory);
  return letter;
}

void check_refusal(const session &client, int status) {
  require(status < 0, "a failure with the status " + std::to_string(status));
  const std::string text = client.error_text();
  require(!text.empty() && text != "Success",
          "status " + std::to_string(status) + " with the text '" + text + "'");
  require(zot_util_get_err(client.handle()) == status, "the handle has another status");
}

int report(gate_page &page, const std::string &root, const services &offered,
           const std::function<void(session &)> &steps) {
  session client(root, offered);
  try {
    steps(client);
    return 0;
  } catch (const std::exception &problem) {
    write_text(page, std::string(problem.what()) + "\n" + client.log());
    return 1;
  }
}

}  // namespace zot::test
