// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/beside_another.hpp"

namespace zot::test {
namespace {

// In these operations a refusal by the library is the expected result.
int expect_refusal(int status, const char *what) {
  require(status < 0,
          std::string(what) + " that another's verdict forbids: " + std::to_string(status));
  return status == ZOT_ERR_CORRUPTED ? ZOT_OK : status;
}

int commit(session &client) {
  return client.commit();
}

int commit_forbidden(session &client) {
  return expect_refusal(client.commit(), "a commit");
}

int roll_back_forbidden(session &client) {
  return expect_refusal(client.roll_back(), "a roll-back");
}

int get(session &client) {
  const returned_list got = client.get('b');
  require(got.status != ZOT_OK || letter_of_entries(got) == 'b',
          "a get returned another configuration");
  return got.status;
}

// If the refused K cannot be read, the library offers the configuration again; a commit of it is
// then refused.
int get_refused(session &client) {
  const int status = get(client);
  return status == ZOT_ERR_SAME_AS_CORRUPTED ? ZOT_OK : status;
}

template <char letter>
int get_cached(session &client) {
  const returned_list got = client.get_cached();
  require(got.status != ZOT_OK || letter_of_entries(got) == letter || letter_of_entries(got) == 'a',
          "a cached get returned another configuration");
  return got.status;
}

template <char letter>
void let_other_commit(session &client) {
  session other = client.beside();
  start(other);
  get_whole(other, letter);
  commit_whole(other, letter);
}

void let_other_roll_back(session &client) {
  session other = client.beside();
  start(other);
  get_whole(other, 'b');
  require(other.roll_back() == ZOT_OK, "roll-back: " + other.error_text());
}

template <void (*prepare)(session &), void (*other)(session &)>
void prepare_both(session &client) {
  prepare(client);
  other(client);
}

void check_not_committed(session &client) {
  require(client.commit() != ZOT_OK, "what another has rolled back is committed");
  require(letter_on_disk(client.disk()) == 'a', "what another has decided is lost");
}

template <char letter>
void check_kept(session &client) {
  require(letter_on_disk(client.disk()) == letter, "what another has decided is lost");
  check_in_force(client, "abd", {letter});
}

// A configuration that was just committed cannot be refused, so this goes on to the next one.
template <char letter>
void reach_next(session &client) {
  constexpr char next = letter == 'b' ? 'd' : 'b';
  const int status = client.get(letter).status;
  require(status >= 0, "what another has committed is not offered: " + std::to_string(status));
  get_whole(client, next);
  commit_whole(client, next);
}

void reach_after_roll_back(session &client) {
  const int status = client.get('b').status;
  require(status == ZOT_ERR_SAME_AS_CORRUPTED,
          "what another has rolled back is offered: " + std::to_string(status));
  get_whole(client, 'd');
  commit_whole(client, 'd');
}

constexpr auto beside_commit = prepare_both<prepare_next, let_other_commit<'b'>>;
constexpr auto beside_other_commit = prepare_both<prepare_next, let_other_commit<'d'>>;
constexpr auto beside_roll_back = prepare_both<prepare_next, let_other_roll_back>;

std::vector<operation> operations_beside_another() {
  return {
      {"commit of what another rolled back", stage::settled, beside_roll_back, commit_forbidden,
       check_kept<'a'>, reach_after_roll_back, 'd', "a", "a", "a", "a", true, true},
      {"commit after that of another", stage::settled, beside_other_commit, commit_forbidden,
       check_kept<'d'>, reach_next<'d'>, 'b', "ad", "d", "d", "d", true, true},
      {"commit of what another committed", stage::settled, beside_commit, commit, check_kept<'b'>,
       reach_next<'b'>, 'd', "ab", "b", "b", "b", true, true},
      {"roll-back of what another committed", stage::settled, beside_commit, roll_back_forbidden,
       check_kept<'b'>, reach_next<'b'>, 'd', "ab", "b", "b", "b", true, true},
      {"roll-back after a commit of another", stage::settled, beside_other_commit,
       roll_back_forbidden, check_kept<'d'>, reach_next<'d'>, 'b', "ad", "d", "d", "d", true, true},
      {"cached get after a commit of another", stage::settled,
       prepare_both<prepare_loaded, let_other_commit<'b'>>, get_cached<'b'>, check_kept<'b'>,
       reach_next<'b'>, 'd', "ab", "b", "b", "b", true, true},
      {"get after a commit of another", stage::settled,
       prepare_both<prepare_loaded, let_other_commit<'b'>>, get, check_kept<'b'>, reach_next<'b'>,
       'd', "ab", "b", "b", "b", true, true},
      {"cached get of what another rolled back", stage::settled, beside_roll_back, get_cached<'a'>,
       check_kept<'a'>, reach_after_roll_back, 'd', "a", "a", "a", "a", true, true},
      {"get of what another rolled back", stage::settled, beside_roll_back, get_refused,
       check_not_committed, reach_after_roll_back, 'd', "a", "ab", "a", "a", true, true},
  };
}

}  // namespace

std::vector<operation> all_operations() {
  std::vector<operation> all = operations();
  const std::vector<operation> beside = operations_beside_another();
  all.insert(all.end(), beside.begin(), beside.end());
  return all;
}

}  // namespace zot::test
