// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/operation.hpp"

#include <signal.h>
#include <sys/resource.h>

#include <cstdio>
#include <exception>

namespace zot::test {

void prepare_loaded(session &client) {
  start(client);
  require(letter_of_entries(client.get_cached()) == 'a', "the cache is not loaded");
}

void prepare_next(session &client) {
  prepare_loaded(client);
  get_whole(client, 'b');
}

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

void prepare_nothing(session &) {}

void prepare_process(session &client) {
  start(client);
}

void prepare_first(session &client) {
  start(client);
  get_whole(client, 'a');
}

// A file size limit makes the commit fail after the K files are in place.
void prepare_failed_commit(session &client) {
  constexpr rlim_t below_the_largest = 8192;
  prepare_next(client);
  rlimit limit{};
  require(::getrlimit(RLIMIT_FSIZE, &limit) == 0, "getrlimit");
  rlimit low = limit;
  low.rlim_cur = below_the_largest;
  ::signal(SIGXFSZ, SIG_IGN);
  require(::setrlimit(RLIMIT_FSIZE, &low) == 0, "setrlimit");
  const int status = client.commit();
  require(::setrlimit(RLIMIT_FSIZE, &limit) == 0, "setrlimit");
  require(status < 0, "a commit without room for a file: " + std::to_string(status));
}

void prepare_after_roll_back(session &client) {
  prepare_next(client);
  require(client.roll_back() == ZOT_OK, "roll-back: " + client.error_text());
  get_whole(client, 'd');
}

void nothing_to_check(session &) {}

template <char letter>
void check_committed(session &client) {
  require(client.in_force() == letter, "a commit that succeeded has not changed what is in force");
  require(letter_on_disk(client.disk()) == letter, "a commit that succeeded left the cache behind");
  check_in_force(client, {letter}, {letter});
}

// The failed commit must be completed, or undone both in memory and in the cache. The undo folder
// may remain when the old state cannot be restored yet.
void check_finished_or_undone(session &client) {
  const char in_force = client.in_force();
  require(in_force == 'a' || in_force == 'b', "a get after a failed commit lost what is in force");
  const file_tree disk = client.disk();
  const bool is_kept = in_force == 'a' && disk.contains(std::string(conf_folder) + "undo/");
  require(letter_on_disk(disk) == in_force || is_kept,
          "a get after a failed commit left the cache behind");
}

template <char refused, char kept>
void check_rolled_back(session &client) {
  const file_tree disk = client.disk();
  const auto k = disk.find(std::string(conf_folder) + "knowledge/corrupted.k");
  const auto checksum = disk.find(std::string(conf_folder) + "knowledge/corrupted.checksum");
  const publication &expected = configuration(refused);
  require(k != disk.end() && k->second == expected.k_text() && checksum != disk.end() &&
              checksum->second == expected.checksum_text(),
          "a roll-back that succeeded has not kept the refused K");
  require(letter_on_disk(disk) == kept, "a roll-back that succeeded changed what is in force");
  check_in_force(client, {kept}, {kept});
}

void check_returned_to(session &client) {
  require(letter_of_entries(client.get_cached()) == 'a',
          "a cached get returned what was withdrawn before its verdict");
}

template <char letter>
void reach(session &client) {
  get_whole(client, letter);
  commit_whole(client, letter);
}

// The refused configuration must still be refused, or be offered again; either way the next one
// must be reachable. One of `kept` must stay in force.
void reach_beside(session &client, char refused, const std::string &kept) {
  const returned_list got = client.get(refused);
  if (got.status == ZOT_OK) {
    require(letter_of_entries(got) == refused, "what is offered anew is not whole");
    const int status = client.roll_back();
    require(status == ZOT_OK || status == ZOT_NO_UPDATE,
            "a second roll-back: " + client.error_text());
  } else {
    require(got.status == ZOT_ERR_SAME_AS_CORRUPTED, "get: " + got.error_text);
    require(kept.find(letter_of_entries(got)) != std::string::npos,
            "beside the refused one something else is in force");
  }
  require(kept.find(client.in_force()) != std::string::npos,
          "a roll-back changed what is in force");
}

template <char refused, char kept, char next>
void reach_after_roll_back(session &client) {
  reach_beside(client, refused, {kept});
  reach<next>(client);
}

// A rollback that failed leaves the commit before it unfinished, and a get may complete it.
void reach_after_failed_commit(session &client) {
  reach_beside(client, 'b', "ab");
  reach<'d'>(client);
}

// True when the last step of the commit was done although it reported failure: the commit can then
// no longer be undone.
bool is_committed_after_all(session &client, char letter) {
  const file_tree disk = client.disk();
  return client.error_text().find("this is in force already") != std::string::npos &&
         letter_on_disk(disk) == letter && !disk.contains(std::string(conf_folder) + "undo/");
}

// The refused configuration is reachable again after another one has been committed.
template <char refused, char kept>
void refuse_failed_commit(session &client) {
  const int status = client.roll_back();
  if (status == ZOT_ERR_CORRUPTED && is_committed_after_all(client, refused)) {
    check_in_force(client, {kept, refused}, {refused});
    reach<'d'>(client);
    return;
  }
  require(status == ZOT_OK,
          "roll-back of a failed commit: " + std::to_string(status) + ": " + client.error_text());
  check_rolled_back<refused, kept>(client);
  reach<'d'>(client);
}

// Ends a disturbance, even when an exception is thrown.
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

constexpr std::string_view unfinished[] = {"undo", "undo.new", "undo.old"};

void require_nothing_unfinished(const file_tree &disk) {
  for (const std::string_view name : unfinished) {
    require(!disk.contains(std::string(conf_folder) + std::string(name) + "/"),
            std::string(name) + " is still there");
  }
}

}  // namespace

const std::vector<operation> &operations() {
  static const std::vector<operation> all = {
      {"first creation", stage::empty, prepare_nothing, create, nothing_to_check, reach<'a'>, 'a',
       "-", "-", "-", "-", true, false},
      {"creation", stage::settled, prepare_nothing, create, nothing_to_check, reach<'b'>, 'b', "a",
       "a", "a", "a", true, false},
      {"creation after a cut-off commit", stage::interrupted, prepare_nothing, create,
       nothing_to_check, reach<'b'>, 'b', "a", "a", "a", "a", true, true},
      {"first get", stage::empty, prepare_process, get<'a'>, nothing_to_check, reach<'a'>, 'a', "-",
       "-a", "-", "-", true, false},
      {"get at start", stage::settled, prepare_process, get<'b'>, nothing_to_check, reach<'b'>, 'b',
       "a-", "ab-", "a", "a", true, false},
      {"get", stage::settled, prepare_loaded, get<'b'>, nothing_to_check, reach<'b'>, 'b', "a",
       "ab", "a", "a", true, false},
      {"get without update", stage::committed, prepare_loaded, get<'a'>, nothing_to_check,
       reach<'b'>, 'b', "a", "a", "a", "a", true, false},
      {"cached get", stage::settled, prepare_process, get_cached, nothing_to_check, reach<'b'>, 'b',
       "a-", "a-", "a", "a", false, false},
      {"get of the old one again", stage::settled, prepare_next, get<'a'>, check_returned_to,
       reach<'b'>, 'b', "a", "ab", "a", "a", true, false},
      {"get after a failed commit", stage::settled, prepare_failed_commit, get<'b'>,
       check_finished_or_undone, reach<'b'>, 'b', "ab", "ab", "ab", "ab", true, false},
      {"first commit", stage::empty, prepare_first, commit, check_committed<'a'>, reach<'a'>, 'a',
       "a-", "a", "a-", "a", true, true, refuse_failed_commit<'a', none>},
      {"commit", stage::settled, prepare_next, commit, check_committed<'b'>, reach<'b'>, 'b', "ab",
       "ab", "ab", "b", true, true, refuse_failed_commit<'b', 'a'>},
      {"commit again", stage::settled, prepare_failed_commit, commit, check_committed<'b'>,
       reach<'b'>, 'b', "ab", "ab", "ab", "b", true, true, refuse_failed_commit<'b', 'a'>},
      {"first roll-back", stage::empty, prepare_first, roll_back, check_rolled_back<'a', none>,
       reach_after_roll_back<'a', none, 'b'>, 'b', "-", "a-", "-", "-", true, true},
      {"roll-back", stage::settled, prepare_next, roll_back, check_rolled_back<'b', 'a'>,
       reach_after_roll_back<'b', 'a', 'd'>, 'd', "a", "ab", "a", "a", true, true},
      {"second roll-back", stage::settled, prepare_after_roll_back, roll_back,
       check_rolled_back<'d', 'a'>, reach_after_roll_back<'d', 'a', 'b'>, 'b', "a", "ad", "a", "a",
       true, true},
      {"roll-back after a failed commit", stage::settled, prepare_failed_commit, roll_back,
       check_rolled_back<'b', 'a'>, reach_after_failed_commit, 'd', "ab", "ab", "a", "a", true,
       true},
  };
  return all;
}

bool succeeds(const operation &swept, const std::function<bool()> &sweep) {
  try {
    return sweep();
  } catch (const not_allowed &) {
    throw;
  } catch (const std::exception &problem) {
    const std::string text = problem.what();
    std::printf("%s: FAILED: %s\n", swept.name, text.substr(0, text.find('\n')).c_str());
    return false;
  }
}

void disturb(session &client, const operation &disturbed, const disturbance &trouble,
             gate_page &page, way_on then) {
  disturbed.prepare(client);
  int status = 0;
  {
    const trouble_scope scope(trouble);
    status = disturbed.act(client);
    page.status = status;
    if (client.handle() != nullptr && status < 0) {
      check_refusal(client, status);
    }
  }
  if (then == way_on::new_process) {
    return;
  }
  if (client.handle() == nullptr) {
    start(client);
  } else if (status >= 0) {
    disturbed.check_done(client);
  }
  if (then == way_on::repeat && status < 0) {
    const int again = disturbed.act(client);
    require(again >= 0, "called again: " + std::to_string(again) + ": " + client.error_text());
    disturbed.check_done(client);
  }
  // No check before the rollback, because any get would complete the commit.
  if (then == way_on::roll_back && status < 0) {
    disturbed.refuse(client);
  } else {
    check_in_force(client, disturbed.in_memory, disturbed.returned);
  }
  disturbed.reach(client);
}

void run_undisturbed(gate_page &page, const std::string &root, const services &offered,
                     const std::function<void(session &)> &steps) {
  const int status = run_process(page, [&] { return report(page, root, offered, steps); });
  require(status == 0, std::string("undisturbed: ") + page.text);
}

char check_restarted(session &client, const std::string &allowed) {
  const char found = check_in_force(client, allowed, allowed);
  require_nothing_unfinished(client.disk());
  return found;
}

char restart(gate_page &page, const std::string &root, const services &offered,
             const std::string &allowed) {
  run_undisturbed(page, root, offered, [&](session &client) {
    start(client);
    page.status = check_restarted(client, allowed);
  });
  return static_cast<char>(page.status.load());
}

void check_settled(const file_tree &disk, char letter) {
  require(letter_on_disk(disk) == letter, "the cache has not what was published");
  require_nothing_unfinished(disk);
}

file_tree make_stage(stage wanted, const std::string &root, const services &offered) {
  const shared_page page;
  write_tree(root, {});
  if (wanted != stage::empty) {
    run_undisturbed(*page, root, offered, commit_first);
  }
  // Adds a refused configuration and a get without an update, so that the cache has every file it
  // can have.
  if (wanted == stage::settled || wanted == stage::interrupted) {
    run_undisturbed(*page, root, offered, refuse_one);
    run_undisturbed(*page, root, offered, get_the_same);
  }
  if (wanted == stage::interrupted) {
    run_undisturbed(*page, root, offered, prepare_failed_commit);
  }
  return read_tree(root);
}

}  // namespace zot::test
