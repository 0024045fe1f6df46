// SPDX-License-Identifier: Apache-2.0
#include "tools/model/statuses.hpp"

#include <algorithm>
#include <charconv>
#include <string>

#include "tools/model/names.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

constexpr std::array advices = {
    status_advice{
        .code = ZOT_OK,
        .meaning = "The call did what it says.",
        .retry = "not needed",
        .fault = "none",
        .cache = "After a get as before: what was fetched lies in the scratch directory until the "
                 "verdict. After a commit the new configuration is in force and on the medium, and "
                 "the one before it is the last one. After a roll-back the configuration in force "
                 "stays, the refused K is kept as corrupted, and the last K is forgotten.",
        .action = "After a get look at the cycle state and at each entry's stat: both a new and an "
                  "unchanged configuration end so.",
        .causes = {{{"zot_conf_get()", "the entries asked for are returned, possibly none"},
                    {"zot_conf_commit()",
                     "committed; or this cycle was committed or rolled back before; or dev mode is "
                     "on, which commits nothing"},
                    {"zot_conf_roll_back()",
                     "rolled back; or this cycle was committed or rolled back before; or dev mode "
                     "is on, which keeps nothing"}}}},
    status_advice{
        .code = ZOT_NO_UPDATE,
        .meaning = "The published configuration is the one in force; no error.",
        .retry = "not needed",
        .fault = "none",
        .cache = "The configuration in force stays. A get that finds no update makes the last K a "
                 "copy of the current one.",
        .action = "Nothing. Ask again at the next interval.",
        .causes = {{{"zot_conf_commit()", "the last get brought nothing new"},
                    {"zot_conf_roll_back()",
                     "the last get brought nothing new, or this K is already kept as corrupted"},
                    {"zot_priv_chk_update()",
                     "the service offers what is in force; zot_conf_get() turns it into ZOT_OK"}}}},
    status_advice{
        .code = ZOT_ERR_GENERIC,
        .meaning = "A file or process operation failed; the recorded text names it.",
        .retry = "yes, once the cause is gone",
        .fault = "storage; for an HTTP response other than 200 and 404: service",
        .cache =
            "A get leaves the configuration in force as it was. A commit that finds no room has "
            "changed nothing. After another failed commit the new configuration is current in "
            "memory, and what was in force before is kept until the commit ends: a process that "
            "starts meanwhile puts it back. After a failed roll-back the configuration in force "
            "is as it was, and the last K may be forgotten.",
        .action = "Read the recorded text: space, permissions and mount of the directory it names. "
                  "After a failed commit call it again, and it goes on where it stopped; or get "
                  "again, which ends the commit or undoes it. A configuration that finds no room "
                  "needs a larger medium or a smaller publication. Call a failed roll-back again.",
        .causes = {{{"zot_conf_get()",
                     "a directory or a scratch file cannot be made, an archive cannot be unpacked "
                     "for want of a process, the last K cannot be written, a folder cannot be "
                     "locked, or the request for K or its checksum got a response other than 200 "
                     "and 404 (0: no file to write to)"},
                    {"zot_conf_commit()",
                     "a file cannot be copied, removed or synchronised; or there is no room for "
                     "the configuration: the text tells the bytes and files that are needed and "
                     "those there; or it would take the place of old files that memory does not "
                     "hold"},
                    {"zot_conf_roll_back()",
                     "the refused K cannot be copied into the cache or synchronised, or what a "
                     "failed commit has changed cannot be put back"},
                    {"zot_util_get_k_meta()", "the destination is the K's own metadata"}}}},
    status_advice{
        .code = ZOT_ERR_NOMEM,
        .meaning = "An allocation failed.",
        .retry = "yes, when memory is free again",
        .fault = "memory",
        .cache = "A get leaves the configuration in force as it was. After a failed commit the new "
                 "configuration may be current in memory, and what was in force before is kept "
                 "until the commit ends.",
        .action = "Free memory. A get holds the files of the new configuration beside those in "
                  "force. Call a failed commit or roll-back again; a get ends a failed commit or "
                  "undoes it.",
        .causes = {{{"zot_conf_get()", "while a K, its list or its files are taken into memory"},
                    {"zot_conf_commit()", "while the committed K is read back"},
                    {"zot_conf_roll_back()", "while the refused K is read back"},
                    {"zot_parm_set()", "no memory for the copy of a log path"}}}},
    status_advice{
        .code = ZOT_ERR_UNKNOWN_OPT,
        .meaning = "An option, parameter or mark is outside its range.",
        .retry = "no",
        .fault = "caller",
        .cache = "Not touched.",
        .action = "Mend the call. Of a log control or of all parameters, what was set before the "
                  "refused value stays set.",
        .causes =
            {{{"zot_parm_set()",
               "unknown parameter; log destination above 5, log level above 3, or return type "
               "above 1"},
              {"zot_parm_get()", "unknown parameter"},
              {"zot_conf_get()", "an entry carries a mark that is none of the changes"}}}},
    status_advice{
        .code = ZOT_ERR_WRONG_INPUT,
        .meaning = "An argument, a setting or a statement of K cannot be used.",
        .retry = "no",
        .fault = "caller; for a file of size 0 in K: controller",
        .cache = "Not touched.",
        .action = "Mend the argument or the environment. When K states a file of size 0, the "
                  "controller has to publish again.",
        .causes =
            {{{"zot_conf_get()",
               "the request bits are 0; a directory holds characters that a shell would "
               "interpret; the persistent and the scratch folder are one; or K states size 0 for "
               "a file"},
              {"zot_conf_commit()", "there is no temporary configuration"},
              {"zot_parm_set(), zot_parm_get()",
               "the length is 0 or too short, the path is empty, there is no callback, or the "
               "handle has no parameters"},
              {"zot_util_get_k_meta()", "the K asked for is none of the three"},
              {"zot_catset_add()", "the value is no category"},
              {"zot_util_get_err()", "there is no handle"}}}},
    status_advice{
        .code = ZOT_ERR_REMOTE_UNAVAIL,
        .meaning = "The service did not answer, broke off, or refused the GPB files.",
        .retry = "yes, with growing pauses",
        .fault = "service; storage when the text tells that received data could not be written",
        .cache = "The configuration in force is as it was.",
        .action = "Go on with the configuration in force, which a cached get returns without the "
                  "service. See that the service runs and that ZOT_REMOTE_PORT names its port.",
        .causes =
            {{{"zot_conf_get()",
               "no connection, a broken transfer, or a response other than 200 to the request "
               "for the GPB files; a K over 64 MiB, a checksum file over 64 KiB, headers over "
               "256 KiB, or an archive larger than K allows; or the callback that watches "
               "transfers ended it"}}}},
    status_advice{.code = ZOT_ERR_RET_TOO_BIG,
                  .meaning = "Reserved.",
                  .retry = "no",
                  .fault = "none",
                  .cache = "Not touched.",
                  .action = "No call returns it.",
                  .causes = {}},
    status_advice{
        .code = ZOT_ERR_CORRUPTED,
        .meaning = "A K, a checksum file, an archive or a GPB file is not what was announced.",
        .retry = "later: a publication may have been replaced during the get",
        .fault = "controller or service; storage when commit or roll-back returns it",
        .cache = "A get leaves the configuration in force as it was and keeps nothing of the "
                 "download in the cache: the same configuration is fetched again by the next get. "
                 "A commit or roll-back that finds the scratch directory changed has changed "
                 "nothing. After another failed commit the new configuration is current in "
                 "memory, and what was in force before is kept: the next get ends the commit or "
                 "undoes it.",
        .action = "Read the recorded text, which names the file. When it comes back at every get, "
                  "the controller has to publish again. Where another get changed the scratch "
                  "directory, get again: that puts it right. After another failed commit or "
                  "roll-back suspect the medium.",
        .causes = {{{"zot_conf_get()",
                     "the checksum file is shorter than 64 characters; K does not match it, is no "
                     "JSON, or lacks gpbs, clusterId or a field of a file, or names one entry in "
                     "two versions; "
                     "the archive cannot be unpacked or holds anything else; or a file is missing, "
                     "empty, or of another size or checksum"},
                    {"zot_conf_commit()",
                     "the K that was written is not what was fetched, or a file is missing after "
                     "the copy; or a file in the scratch directory was changed or is missing; or a "
                     "path of K leads out of the folder of GPB files; or the get of "
                     "another process changed the scratch directory after the get of this one"},
                    {"zot_conf_roll_back()",
                     "the same; or the configuration is in force already, because another process "
                     "has committed it"}}}},
    status_advice{
        .code = ZOT_ERR_NULL_INPUT,
        .meaning = "An argument is missing.",
        .retry = "no",
        .fault = "caller; for a file without a checksum in K: controller",
        .cache = "Not touched, but that a roll-back has forgotten the last K before it finds no "
                 "temporary one.",
        .action = "Mend the call. A call without a handle records nothing.",
        .causes = {{{"zot_conf_get()",
                     "no handle or no place for the list; an adapter's download operation is "
                     "missing; or K states no checksum for a file"},
                    {"zot_conf_commit()", "no handle"},
                    {"zot_conf_roll_back()", "no handle, or no temporary K"},
                    {"zot_conf_free()", "no handle"},
                    {"zot_conf_free_ret_data()", "no list"},
                    {"zot_parm_set(), zot_parm_get()",
                     "no handle or no value, or a log control without what its destination needs"},
                    {"zot_util_get_k_meta(), zot_catset_…()", "no handle, destination or set"}}}},
    status_advice{
        .code = ZOT_ERR_OUT_OF_RANGE,
        .meaning = "The sub-system index is longer than an adapter takes.",
        .retry = "no",
        .fault = "caller",
        .cache = "Not touched.",
        .action = "Set a length of at most 17. Creation does not end so: it lets an adapter use "
                  "the first 17 bytes of an index, and refuses one above 52 bytes with no handle.",
        .causes = {{{"zot_sub_init_data()", "the length word of the index is above 17"}}}},
    status_advice{
        .code = ZOT_ERR_TIMEOUT,
        .meaning = "A transfer passed its time limit, or another process held the lock of the "
                   "cache or of the scratch directory for as long.",
        .retry = "yes, with growing pauses",
        .fault = "service; for a lock: the other process",
        .cache = "The configuration in force is as it was.",
        .action = "Go on with the configuration in force. The recorded text names the address or "
                  "the locked directory. See what holds the service up; raise ZOT_PARM_TIMEOUT "
                  "when K is large or the service slow. A lock is held during a get and a commit, "
                  "and as long as a command that one of them started still runs: see which "
                  "process works on that directory.",
        .causes = {{{"zot_conf_get()",
                     "K or its checksum took longer than ZOT_PARM_TIMEOUT, or no connection came "
                     "about for the GPB files, whose transfer has no limit of its own; or a "
                     "directory stayed locked"},
                    {"zot_conf_commit(), zot_conf_roll_back()",
                     "a directory stayed locked; nothing was changed"},
                    {"zot_util_get_k_meta()", "a directory stayed locked"}}}},
    status_advice{
        .code = ZOT_ERR_NO_CACHE,
        .meaning = "Nothing cached can be returned.",
        .retry = "after a get that was committed",
        .fault = "none on a new element; storage when there was a configuration in force",
        .cache = "Not touched. A cached configuration with a file that fails verification counts "
                 "as none, and what was in force before is not reported as deleted.",
        .action = "Get a configuration and commit it. On an element that had one, verify the files "
                  "of the cache.",
        .causes = {{{"zot_conf_get()",
                     "cached entries were asked for, and nothing is in force or waits for its "
                     "verdict, or has no entry in these categories"},
                    {"zot_util_get_k_meta()", "there is no such K"}}}},
    status_advice{
        .code = ZOT_ERR_SAME_AS_CORRUPTED,
        .meaning = "The service still offers the configuration that was rolled back.",
        .retry = "later: only another publication ends it",
        .fault = "controller",
        .cache = "The configuration in force stays, and the corrupted K is kept.",
        .action = "Go on with the configuration in force and free the returned list. The "
                  "controller has to publish another configuration. To have the same one offered "
                  "again, run zotconf forget.",
        .causes = {{{"zot_conf_get()",
                     "the announced checksum is that of the corrupted K; the list holds the cached "
                     "entries, none when nothing is in force"}}}},
    status_advice{
        .code = ZOT_ERR_NOT_READY,
        .meaning = "A get that completed has to come first.",
        .retry = "no",
        .fault = "caller",
        .cache = "Not touched.",
        .action = "Call zot_conf_get() and go on when it brings a new configuration. A get that "
                  "failed ends the cycle before it.",
        .causes = {{{"zot_conf_commit()", "no get, or the last one failed"},
                    {"zot_conf_roll_back()", "no get, or the last one failed"},
                    {"zot_util_get_k_meta()", "the new K was asked for before a get completed"}}}},
    status_advice{
        .code = ZOT_ERR_NO_FILE,
        .meaning = "There is no saved K of that kind.",
        .retry = "no; of a commit or roll-back once the medium is mended",
        .fault = "caller in dev mode; storage when commit or roll-back returns it",
        .cache = "A get leaves it as it was. After a failed commit the new configuration is "
                 "current in memory, and what was in force before is kept: the next get ends the "
                 "commit or undoes it.",
        .action = "In dev mode put knowledge/subsys.k and knowledge/subsys.checksum below "
                  "ZOT_DEV_PATH. After a failed commit or roll-back suspect the medium, and call "
                  "again or get again.",
        .causes = {{{"zot_conf_get()", "dev mode is on and its directory holds no checksum file"},
                    {"zot_conf_commit()", "the checksum file just written is gone"},
                    {"zot_conf_roll_back()", "the checksum file just written is gone"},
                    {"zot_priv_read_…_k()", "the checksum file of that K is absent"}}}},
    status_advice{
        .code = ZOT_ERR_NOT_FOUND,
        .meaning = "The service does not know the file (404).",
        .retry = "later, when the element is published",
        .fault = "controller when nothing is published; caller when index or sub-system is wrong",
        .cache = "The configuration in force is as it was.",
        .action = "Compare sub-system and index of the handle with what is published; the recorded "
                  "text holds the address.",
        .causes = {{{"zot_conf_get()",
                     "the service answered the request for K or its checksum "
                     "with 404"}}}},
};

struct known_status {
  int code;
  std::string_view name;
  const char *text;
};

constexpr std::array known = {
#define ZOT_STATUS_ROW(name, code, text) known_status{(code), #name, (text)},
    ZOT_STATUS_MAP(ZOT_STATUS_ROW)
#undef ZOT_STATUS_ROW
};

constexpr bool advises_each_status_once() {
  return advices.size() == known.size() && std::ranges::all_of(known, [](const known_status &one) {
           return std::ranges::count(advices, one.code, &status_advice::code) == 1;
         });
}
static_assert(advises_each_status_once());

constexpr auto make_entries() {
  std::array<status_entry, advices.size()> entries{};
  for (size_t at = 0; at < advices.size(); ++at) {
    const auto *const found = std::ranges::find(known, advices[at].code, &known_status::code);
    entries[at].name = found->name;
    if (found->text != nullptr) {
      entries[at].text = found->text;
    }
    entries[at].advice = &advices[at];
  }
  return entries;
}

constexpr auto entries = make_entries();

// Whether words are a name, or one without its prefix.
bool is_name(std::string_view words, std::string_view name) {
  if (!name.ends_with(words)) {
    return false;
  }
  name.remove_suffix(words.size());
  return name.empty() || name == "ZOT_" || name == "ZOT_ERR_";
}

std::optional<int> parse_number(std::string_view words) {
  int number = 0;
  const char *const end = words.data() + words.size();
  const auto [stopped, error] = std::from_chars(words.data(), end, number);
  return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

}  // namespace

std::span<const status_cause> status_entry::causes() const {
  const auto &all = advice->causes;
  const auto *const end =
      std::ranges::find_if(all, [](const status_cause &cause) { return cause.call.empty(); });
  return {all.begin(), end};
}

std::span<const status_entry> all_statuses() {
  return entries;
}

const status_entry *find_status(std::string_view words) {
  const std::optional<int> number = parse_number(words);
  const std::string name = upper_case(words);
  const auto *const found = std::ranges::find_if(entries, [&](const status_entry &entry) {
    return number ? entry.advice->code == *number : is_name(name, entry.name);
  });
  return found != entries.end() ? found : nullptr;
}

}  // namespace zotconf
