// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/operation.hpp"

namespace zot::test {
namespace {

int create(session &client) {
  return client.start() ? ZOT_OK : ZOT_ERR_GENERIC;
}

template <char letter>
int get(session &client) {
  const returned_list got = client.get(letter);
  require(got.status != ZOT_OK || letter_of_entries(got) == letter,
          "a get that succeeded returned another configuration");
  require((got.status == ZOT_OK) == got.has_list, "a list with a failure, or none with success");
  return got.status;
}

int get_cached(session &client) {
  const returned_list got = client.get_cached();
  require(
      got.status != ZOT_OK || std::string("a-").find(letter_of_entries(got)) != std::string::npos,
      "a cached get returned another configuration");
  return got.status;
}

int commit(session &client) {
  return client.commit();
}

int roll_back(session &client) {
  return client.roll_back();
}

void nothing_to_check(session &) {}

template <char letter>
void check_committed(session &client) {
  require(client.in_force() == letter, "a commit that succeeded has not changed what is in force");
  require(letter_on_disk(client.disk()) == letter, "a commit that succeeded left the cache behind");
}

void check_rolled_back(session &client) {
  const file_tree disk = client.disk();
  const auto k = disk.find(std::string(conf_folder) + "knowledge/corrupted.k");
  const auto checksum = disk.find(std::string(conf_folder) + "knowledge/corrupted.checksum");
  require(k != disk.end() && k->second == configuration('b').k_text() && checksum != disk.end() &&
              checksum->second == configuration('b').checksum_text(),
          "a roll-back that succeeded has not kept the refused K");
}

template <char letter>
void reach(session &client) {
  get_whole(client, letter);
  commit_whole(client, letter);
}

// What was refused is refused still, or offered anew; the next one is taken either way.
void reach_after_roll_back(session &client) {
  const returned_list got = client.get('b');
  if (got.status == ZOT_OK) {
    require(letter_of_entries(got) == 'b', "what is offered anew is not whole");
    const int status = client.roll_back();
    require(status == ZOT_OK || status == ZOT_NO_UPDATE,
            "a second roll-back: " + client.error_text());
  } else {
    require(got.status == ZOT_ERR_SAME_AS_CORRUPTED, "get: " + got.error_text);
    require(letter_of_entries(got) == 'a', "beside the refused one something else is in force");
  }
  require(client.in_force() == 'a', "a roll-back changed what is in force");
  reach<'d'>(client);
}

// Ends a disturbance also when an exception does.
class trouble_scope {
 public:
  explicit trouble_scope(const disturbance &trouble) : trouble_(trouble) { trouble_.begin(); }
  trouble_scope(const trouble_scope &) = delete;
  trouble_scope &operator=(const trouble_scope &) = delete;
  ~trouble_scope() { trouble_.end(); }

 private:
  const disturbance &trouble_;
};

void commit_first(session &client) {
  start(client);
  reach<'a'>(client);
}

void refuse_one(session &client) {
  start(client);
  get_whole(client, 'c');
  require(client.roll_back() == ZOT_OK, "roll-back: " + client.error_text());
}

void get_the_same(session &client) {
  start(client);
  get_whole(client, 'a');
}

}  // namespace

const std::vector<operation> &operations() {
  static const std::vector<operation> all = {
      {"first creation", stage::empty, false, none, create, nothing_to_check, reach<'a'>, 'a', "-",
       "-", "-", true},
      {"creation", stage::settled, false, none, create, nothing_to_check, reach<'b'>, 'b', "a", "a",
       "a", true},
      {"first get", stage::empty, false, none, get<'a'>, nothing_to_check, reach<'a'>, 'a', "-",
       "-a", "-", true},
      {"get at start", stage::settled, false, none, get<'b'>, nothing_to_check, reach<'b'>, 'b',
       "a-", "ab-", "a", true},
      {"get", stage::settled, true, none, get<'b'>, nothing_to_check, reach<'b'>, 'b', "a", "ab",
       "a", true},
      {"get without update", stage::committed, true, none, get<'a'>, nothing_to_check, reach<'b'>,
       'b', "a", "a", "a", true},
      {"cached get", stage::settled, false, none, get_cached, nothing_to_check, reach<'b'>, 'b',
       "a-", "a-", "a", false},
      {"first commit", stage::empty, false, 'a', commit, check_committed<'a'>, reach<'a'>, 'a',
       "a-", "a", "a-", true},
      {"commit", stage::settled, true, 'b', commit, check_committed<'b'>, reach<'b'>, 'b', "ab",
       "ab", "ab-", true},
      {"roll-back", stage::settled, true, 'b', roll_back, check_rolled_back, reach_after_roll_back,
       'd', "a", "ab", "a", true},
  };
  return all;
}

void prepare(session &client, const operation &disturbed) {
  if (disturbed.act == create) {
    return;
  }
  start(client);
  if (disturbed.loaded) {
    require(letter_of_entries(client.get_cached()) == 'a', "the cache is not loaded");
  }
  if (disturbed.prepared != none) {
    get_whole(client, disturbed.prepared);
  }
}

void disturb(session &client, const operation &disturbed, const disturbance &trouble,
             gate_page &page, bool repeat) {
  prepare(client, disturbed);
  int status = 0;
  {
    const trouble_scope scope(trouble);
    status = disturbed.act(client);
    page.status = status;
    if (client.handle() != nullptr && status < 0) {
      check_refusal(client, status);
    }
  }
  if (client.handle() == nullptr) {
    start(client);
  } else if (status >= 0) {
    disturbed.check_done(client);
  }
  if (repeat && status < 0) {
    const int again = disturbed.act(client);
    require(again >= 0, "called again: " + std::to_string(again) + ": " + client.error_text());
    disturbed.check_done(client);
  }
  check_in_force(client, disturbed.in_memory, disturbed.returned);
  disturbed.reach(client);
}

void run_undisturbed(gate_page &page, const std::string &root, const services &offered,
                     const std::function<void(session &)> &steps) {
  const int status = run_process(page, [&] { return report(page, root, offered, steps); });
  require(status == 0, std::string("undisturbed: ") + page.text);
}

char restart(gate_page &page, const std::string &root, const services &offered,
             const operation &disturbed) {
  run_undisturbed(page, root, offered, [&](session &client) {
    start(client);
    page.status = check_in_force(client, disturbed.restarted, disturbed.restarted);
  });
  return static_cast<char>(page.status.load());
}

file_tree make_stage(stage wanted, const std::string &root, const services &offered) {
  const shared_page page;
  write_tree(root, {});
  if (wanted != stage::empty) {
    run_undisturbed(*page, root, offered, commit_first);
  }
  // With one that was refused, and a get without an update: every file that a cache may hold.
  if (wanted == stage::settled) {
    run_undisturbed(*page, root, offered, refuse_one);
    run_undisturbed(*page, root, offered, get_the_same);
  }
  return read_tree(root);
}

}  // namespace zot::test
