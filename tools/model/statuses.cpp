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
        .meaning = "The call succeeded.",
        .retry = "not needed",
        .fault = "none",
        .cache =
            "After a get: unchanged; the download stays in the scratch directory until commit or "
            "rollback. After a commit: the new configuration is in force and on the medium, and "
            "the K before it is the last K. After a rollback: the configuration in force is "
            "unchanged, the refused K is kept as corrupted, and the last K is removed.",
        .action = "After a get, check the cycle state and the stat of each entry: the status is "
                  "the same for a new and for an unchanged configuration.",
        .causes = {{{"zot_conf_get()", "the requested entries are returned; the list may be empty"},
                    {"zot_conf_commit()",
                     "committed; or this cycle was committed or rolled back before; or dev mode is "
                     "on, which commits nothing"},
                    {"zot_conf_roll_back()",
                     "rolled back; or this cycle was committed or rolled back before; or dev mode "
                     "is on, which keeps nothing"}}}},
    status_advice{
        .code = ZOT_NO_UPDATE,
        .meaning = "The published configuration is already in force. This is not an error.",
        .retry = "not needed",
        .fault = "none",
        .cache = "The configuration in force is unchanged. A get that finds no update replaces the "
                 "last K with a copy of the current one.",
        .action = "Nothing. Ask again at the next interval.",
        .causes = {{{"zot_conf_commit()", "the last get found no update"},
                    {"zot_conf_roll_back()",
                     "the last get found no update, or this K is already kept as corrupted"},
                    {"zot_priv_chk_update()",
                     "the service offers the configuration in force; zot_conf_get() returns ZOT_OK "
                     "then"}}}},
    status_advice{
        .code = ZOT_ERR_GENERIC,
        .meaning = "A file or process operation failed; the recorded text names it.",
        .retry = "yes, after the cause is fixed",
        .fault = "storage; for an HTTP response other than 200 and 404: service",
        .cache = "After a failed get: unchanged. After a commit that finds no room: unchanged. "
                 "After another failed commit: the new configuration is current in memory, and the "
                 "previous one is kept on the medium until the commit completes; a process that "
                 "starts meanwhile restores it. After a failed rollback: the configuration in "
                 "force is unchanged, and the last K may be lost.",
        .action = "Read the recorded text. Check free space, permissions and mount state of the "
                  "directory that it names. After a failed commit, call commit again, which "
                  "writes all files again, or get again, which completes the commit or undoes "
                  "it. When there is no room, use a larger medium or publish less. After a failed "
                  "rollback, call it again.",
        .causes = {{{"zot_conf_get()",
                     "a directory or a scratch file cannot be created, no process can be started "
                     "to unpack the archive, the last K cannot be written, a directory cannot be "
                     "locked, or the request for K or its checksum got a response other than 200 "
                     "and 404 (0: no file to write to; 200: the answer came, and could not be "
                     "stored in the "
                     "scratch directory, or was empty)"},
                    {"zot_conf_commit()",
                     "a file cannot be copied, removed or synchronised; or there is no room for "
                     "the configuration: the text has the bytes and files that are needed and that "
                     "are free; or it would replace old files that are not in memory"},
                    {"zot_conf_roll_back()",
                     "the refused K cannot be copied into the cache or synchronised, or the "
                     "changes of a failed commit cannot be undone"},
                    {"zot_util_get_k_meta()", "the destination is the K's own metadata"}}}},
    status_advice{
        .code = ZOT_ERR_NOMEM,
        .meaning = "An allocation failed.",
        .retry = "yes, when memory is free again",
        .fault = "memory",
        .cache = "After a failed get: unchanged. After a failed commit: the new configuration may "
                 "be current in memory, and the previous one is kept on the medium until the "
                 "commit completes.",
        .action = "Free memory. A get needs memory for the files of the new configuration in "
                  "addition to those in force. Call a failed commit or rollback again; a get "
                  "completes a failed commit or undoes it.",
        .causes = {{{"zot_conf_get()", "while a K, its list or its files are read into memory"},
                    {"zot_conf_commit()", "while the committed K is read back"},
                    {"zot_conf_roll_back()", "while the refused K is read back"},
                    {"zot_parm_set()", "no memory for the copy of a log path"}}}},
    status_advice{
        .code = ZOT_ERR_UNKNOWN_OPT,
        .meaning = "An option, parameter or mark is outside its range.",
        .retry = "no",
        .fault = "caller",
        .cache = "Unchanged.",
        .action = "Fix the call. When a log control or all parameters are set at once, the values "
                  "before the refused one stay set.",
        .causes = {{{"zot_parm_set()",
                     "unknown parameter; log destination above 5, log level above 3, or return "
                     "type above 1"},
                    {"zot_parm_get()", "unknown parameter"},
                    {"zot_conf_get()", "an entry has a mark that is not one of the changes"}}}},
    status_advice{.code = ZOT_ERR_WRONG_INPUT,
                  .meaning = "An argument, a setting or a value in K is invalid.",
                  .retry = "no",
                  .fault = "caller; for a file of size 0 in K: controller",
                  .cache = "Unchanged.",
                  .action = "Fix the argument or the environment. When K lists a file of size 0, "
                            "the controller has to publish again.",
                  .causes = {{{"zot_conf_get()",
                               "the request bits are 0; a directory name contains characters that "
                               "a shell would interpret; the persistent and the scratch directory "
                               "are the same; or K lists a file of size 0"},
                              {"zot_conf_commit()", "there is no temporary configuration"},
                              {"zot_parm_set(), zot_parm_get()",
                               "the length is 0 or too short, the path is empty, the callback is "
                               "missing, or the handle has no parameters"},
                              {"zot_util_get_k_meta()", "which is not one of the three K"},
                              {"zot_catset_add()", "the value is not a category"},
                              {"zot_util_get_err()", "the handle is NULL"}}}},
    status_advice{
        .code = ZOT_ERR_REMOTE_UNAVAIL,
        .meaning = "The service did not answer, closed the connection early, or refused the "
                   "request for the GPB files.",
        .retry = "yes, with growing pauses",
        .fault = "service; storage when the text says that received data could not be written",
        .cache = "The configuration in force is unchanged.",
        .action = "Continue with the configuration in force; a cached get returns it without the "
                  "service. Check that the service runs and that ZOT_REMOTE_PORT is its port.",
        .causes = {{{"zot_conf_get()",
                     "no connection, an incomplete transfer, or a response other than 200 to the "
                     "request for the GPB files; a K over 64 MiB, a checksum file over 64 KiB, "
                     "headers over 256 KiB, or an archive larger than K allows; or the callback "
                     "that watches transfers stopped it"}}}},
    status_advice{.code = ZOT_ERR_RET_TOO_BIG,
                  .meaning = "Reserved.",
                  .retry = "no",
                  .fault = "none",
                  .cache = "Unchanged.",
                  .action = "No call returns it.",
                  .causes = {}},
    status_advice{
        .code = ZOT_ERR_CORRUPTED,
        .meaning =
            "A K, a checksum file, an archive or a GPB file does not match what was announced.",
        .retry = "later: a publication may have been replaced during the get",
        .fault = "controller or service; storage when commit or rollback returns it",
        .cache = "After a failed get: unchanged, and the next get downloads the same configuration "
                 "again. After a commit or rollback that finds the scratch directory changed: "
                 "unchanged. After another failed commit: the new configuration is current in "
                 "memory, and the previous one is kept on the medium; the next get completes the "
                 "commit or undoes it.",
        .action = "Read the recorded text. For a damaged GPB file, the log at level debug names "
                  "the file. When every get returns this "
                  "status, the controller has to publish again. When another get has changed the "
                  "scratch directory, get again: that repairs it. After another failed commit or "
                  "rollback, suspect the medium.",
        .causes = {{{"zot_conf_get()",
                     "the checksum file is shorter than 64 characters; K does not match it, is not "
                     "JSON, lacks gpbs, clusterId or a field of a file, or lists one entry in two "
                     "versions; the archive cannot be unpacked or contains anything else; or a "
                     "file is missing, empty, or has another size or checksum"},
                    {"zot_conf_commit()",
                     "the K that was written differs from the one that was fetched, or a file is "
                     "missing after the copy; or a file in the scratch directory was changed or is "
                     "missing; or a path in K leads out of the directory of GPB files; or the get "
                     "of another process changed the scratch directory after the get of this one"},
                    {"zot_conf_roll_back()",
                     "the same; or the configuration is already in force because another process "
                     "has committed it"}}}},
    status_advice{
        .code = ZOT_ERR_NULL_INPUT,
        .meaning = "An argument is missing.",
        .retry = "no",
        .fault = "caller; for a file without a checksum in K: controller",
        .cache = "Unchanged, except that a rollback without a temporary K has already removed the "
                 "last K.",
        .action = "Fix the call. A call without a handle records nothing.",
        .causes = {{{"zot_conf_get()",
                     "the handle or the place for the list is NULL; an adapter has no download "
                     "operation; or K lists a file without a checksum"},
                    {"zot_conf_commit()", "the handle is NULL"},
                    {"zot_conf_roll_back()", "the handle is NULL, or there is no temporary K"},
                    {"zot_conf_free()", "the handle is NULL"},
                    {"zot_conf_free_ret_data()", "the list is NULL"},
                    {"zot_parm_set(), zot_parm_get()",
                     "the handle or the value is NULL, or a log control lacks what its destination "
                     "needs"},
                    {"zot_util_get_k_meta(), zot_catset_…()",
                     "the handle, the destination or the set is NULL"}}}},
    status_advice{
        .code = ZOT_ERR_OUT_OF_RANGE,
        .meaning = "The sub-system index is longer than an adapter accepts.",
        .retry = "no",
        .fault = "caller",
        .cache = "Unchanged.",
        .action = "Set a length of at most 17. Creation does not return this status: it passes the "
                  "first 17 bytes of an index to the adapter, and returns no handle for an index "
                  "above 52 bytes.",
        .causes = {{{"zot_sub_init_data()", "the length word of the index is above 17"}}}},
    status_advice{
        .code = ZOT_ERR_TIMEOUT,
        .meaning = "A transfer exceeded its time limit, or another process held the lock of the "
                   "cache or of the scratch directory for that long.",
        .retry = "yes, with growing pauses",
        .fault = "service; for a lock: the other process",
        .cache = "The configuration in force is unchanged.",
        .action = "Continue with the configuration in force. The recorded text names the address "
                  "or the locked directory. Find out what delays the service; raise "
                  "ZOT_PARM_TIMEOUT when K is large or the service is slow. A lock is held during "
                  "a get and a commit, and while a command that one of them started still runs: "
                  "find the process that works on that directory.",
        .causes = {{{"zot_conf_get()",
                     "K or its checksum took longer than ZOT_PARM_TIMEOUT; or the connection for "
                     "the GPB files was not established in that time (the transfer itself has no "
                     "limit); or a directory stayed locked"},
                    {"zot_conf_commit(), zot_conf_roll_back()",
                     "a directory stayed locked; nothing was changed"},
                    {"zot_util_get_k_meta()", "a directory stayed locked"}}}},
    status_advice{
        .code = ZOT_ERR_NO_CACHE,
        .meaning = "There is nothing cached to return.",
        .retry = "after a get and a commit",
        .fault = "none on a new element; storage when a configuration was in force before",
        .cache = "Unchanged. A cached configuration with a file that fails verification counts as "
                 "none, and its entries are not reported as deleted.",
        .action = "Get a configuration and commit it. On an element that had one, verify the files "
                  "of the cache: zotconf verify.",
        .causes = {{{"zot_conf_get()",
                     "cached entries were requested, and no configuration is in force or waits for "
                     "commit or rollback, or it has no entry in these categories"},
                    {"zot_util_get_k_meta()", "there is no such K"}}}},
    status_advice{
        .code = ZOT_ERR_SAME_AS_CORRUPTED,
        .meaning = "The service still offers the configuration that was rolled back.",
        .retry = "later: only another publication changes it",
        .fault = "controller",
        .cache = "The configuration in force is unchanged, and the corrupted K is kept.",
        .action = "Continue with the configuration in force and free the returned list. The "
                  "controller has to publish another configuration. To accept the same one again, "
                  "run zotconf forget.",
        .causes = {{{"zot_conf_get()",
                     "the announced checksum is that of the corrupted K; the list has the cached "
                     "entries, or is empty when no configuration is in force"}}}},
    status_advice{
        .code = ZOT_ERR_NOT_READY,
        .meaning = "The call needs a completed get before it.",
        .retry = "no",
        .fault = "caller",
        .cache = "Unchanged.",
        .action = "Call zot_conf_get() first, and commit or roll back only a new configuration. A "
                  "get that fails ends the previous cycle.",
        .causes = {{{"zot_conf_commit()", "there was no get, or the last one failed"},
                    {"zot_conf_roll_back()", "there was no get, or the last one failed"},
                    {"zot_util_get_k_meta()", "the new K was requested before a get completed"}}}},
    status_advice{
        .code = ZOT_ERR_NO_FILE,
        .meaning = "There is no saved K of that kind.",
        .retry = "no; a commit or rollback after the medium is repaired",
        .fault = "caller in dev mode; storage when commit or rollback returns it",
        .cache = "After a failed get: unchanged. After a failed commit: the new configuration is "
                 "current in memory, and the previous one is kept on the medium; the next get "
                 "completes the commit or undoes it.",
        .action = "In dev mode, put knowledge/subsys.k and knowledge/subsys.checksum below "
                  "ZOT_DEV_PATH. After a failed commit or rollback, suspect the medium, and call "
                  "it again or get again.",
        .causes = {{{"zot_conf_get()", "dev mode is on and its directory has no checksum file"},
                    {"zot_conf_commit()", "the checksum file that was just written is missing"},
                    {"zot_conf_roll_back()", "the checksum file that was just written is missing"},
                    {"zot_priv_read_…_k()", "the checksum file of that K is missing"}}}},
    status_advice{
        .code = ZOT_ERR_NOT_FOUND,
        .meaning = "The service does not know the file (404).",
        .retry = "later, when the element is published",
        .fault = "controller when nothing is published; caller when index or sub-system is wrong",
        .cache = "The configuration in force is unchanged.",
        .action = "Compare sub-system and index of the handle with what is published; the recorded "
                  "text has the address.",
        .causes = {{{"zot_conf_get()",
                     "the service answered the request for K or its checksum with 404"}}}},
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

// Whether `words` is the name, with or without its prefix.
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
