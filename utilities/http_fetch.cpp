// SPDX-License-Identifier: Apache-2.0
// Two blocking HTTP transfers: one file by GET, an archive of named files by POST.
#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "utilities/http_limits.hpp"
#include "utilities/loopback.hpp"
#include "utilities/own_names.hpp"
#include "utilities/owner.hpp"
#include "utilities/text.hpp"
#include "zot_conf.h"

namespace {

constexpr long http_ok = 200;
constexpr long http_error = 400;
// The receive buffer for an archive: four times libcurl's default, because archives are large.
constexpr long archive_buffer_size = 65536;
// libcurl counts the limit as an int of milliseconds and accepts no longer one.
constexpr uint32_t longest_timeout = INT_MAX / 1000;

// Holds libcurl's global state for the duration of one transfer.
class curl_session {
 public:
  curl_session() { curl_global_init(CURL_GLOBAL_ALL); }
  curl_session(const curl_session &) = delete;
  curl_session &operator=(const curl_session &) = delete;
  ~curl_session() { curl_global_cleanup(); }
};

using curl_handle = std::unique_ptr<CURL, zot::releaser<curl_easy_cleanup>>;
using json_text = std::unique_ptr<char, zot::releaser<cJSON_free>>;

// Far more than the headers of any service. libcurl stores each header, including those of
// provisional responses and those after a body, and not every version limits them.
constexpr uint64_t most_headers = uint64_t{256} << 10;

// The destination of a body, and how much has arrived.
struct body_sink {
  std::FILE *file;
  uint64_t limit;  // 0: no limit
  uint64_t received = 0;
  uint64_t headers = 0;
  bool is_exceeded = false;
};

// Counts the bytes itself: libcurl checks its own limit only against an announced length, and
// neither a chunked nor an encoded body announces one.
size_t write_to_sink(char *data, size_t size, size_t count, void *arg) {
  auto &sink = *static_cast<body_sink *>(arg);
  const uint64_t bytes = uint64_t{size} * count;
  if (sink.limit != 0 && bytes > sink.limit - sink.received) {
    sink.is_exceeded = true;
    return 0;
  }
  sink.received += bytes;
  return std::fwrite(data, size, count, sink.file);
}

size_t count_header(char * /*data*/, size_t size, size_t count, void *arg) {
  auto &sink = *static_cast<body_sink *>(arg);
  sink.headers += uint64_t{size} * count;
  if (sink.headers > most_headers) {
    sink.is_exceeded = true;
    return 0;
  }
  return size * count;
}

struct transfer_watcher {
  zot_transfer_cb cb;
  void *arg;
};

// One per thread, because a process may run one handle in each.
constinit thread_local transfer_watcher watcher = {};

// Any result other than zero ends the transfer. It becomes 1, because libcurl takes one other value
// as a request for its own progress meter.
int tell_watcher(void * /*unused*/, curl_off_t /*expected*/, curl_off_t received,
                 curl_off_t /*to_send*/, curl_off_t /*sent*/) {
  // Copied each time, because a watcher may remove itself.
  const transfer_watcher told = watcher;
  return told.cb != nullptr && told.cb(told.arg, static_cast<uint64_t>(received)) != 0 ? 1 : 0;
}

// Sets close-on-exec, so that a program that another thread starts in the meantime does not inherit
// the socket. libcurl's own sockets lack it.
curl_socket_t open_socket(void * /*none*/, curlsocktype /*purpose*/, curl_sockaddr *address) {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

// The result of setting up a transfer. A build of libcurl may lack a feature and its options. A
// transfer goes on without an option that it does not need, but never after an out-of-memory error.
class setup {
 public:
  void need(CURLcode result) {
    if (outcome_ == CURLE_OK) {
      outcome_ = result;
    }
  }
  // Whether libcurl accepted the option.
  bool wish(CURLcode result) {
    if (result == CURLE_OUT_OF_MEMORY) {
      need(result);
    }
    return result == CURLE_OK;
  }
  [[nodiscard]] CURLcode outcome() const { return outcome_; }

 private:
  CURLcode outcome_ = CURLE_OK;
};

void allow_http_alone(CURL *curl, setup &rules) {
#if LIBCURL_VERSION_NUM >= 0x075500
  // A libcurl without TLS refuses both protocols together.
  if (!rules.wish(curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https"))) {
    rules.wish(curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http"));
  }
#else
  rules.wish(curl_easy_setopt(curl, CURLOPT_PROTOCOLS,
                              static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS)));
#endif
}

// Disables proxies, whatever the environment names. A libcurl without this option has no proxies.
CURLcode leave_proxies_out(CURL *curl) {
  const CURLcode result = curl_easy_setopt(curl, CURLOPT_PROXY, "");
  return result == CURLE_UNKNOWN_OPTION || result == CURLE_NOT_BUILT_IN ? CURLE_OK : result;
}

// The rules of both transfers: no signals in the host process, nothing but HTTP, and no proxy
// between an element and its own service. No encoding of the body is requested, so that a small
// response stays small.
setup set_transfer_rules(CURL *curl, const char *url, body_sink *sink) {
  setup rules;
  rules.need(curl_easy_setopt(curl, CURLOPT_URL, url));
  rules.need(curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, write_to_sink));
  rules.need(curl_easy_setopt(curl, CURLOPT_WRITEDATA, sink));
  // With only one of the two options, headers would go where the body goes, or nowhere.
  rules.need(curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, count_header));
  rules.need(curl_easy_setopt(curl, CURLOPT_HEADERDATA, sink));
  rules.wish(curl_easy_setopt(curl, CURLOPT_FILETIME, 1L));
  rules.wish(curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L));
  rules.wish(curl_easy_setopt(curl, CURLOPT_OPENSOCKETFUNCTION, open_socket));
  allow_http_alone(curl, rules);
  if (sink->limit != 0) {
    const auto limit = static_cast<curl_off_t>(std::min<uint64_t>(sink->limit, INT64_MAX));
    rules.wish(curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, limit));
  }
  // Without this function libcurl would print its own progress meter.
  if (watcher.cb != nullptr &&
      rules.wish(curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, tell_watcher))) {
    rules.wish(curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L));
  }
  if (zot::may_name_loopback(url)) {
    rules.need(leave_proxies_out(curl));
  }
  return rules;
}

// Fills in time, size and file time; the file time only if the service sent one.
void fill_statistics(CURL *curl, remote_file_stat *stat) {
  curl_off_t bytes = 0;
  curl_off_t file_time = -1;
  curl_easy_getinfo(curl, CURLINFO_TOTAL_TIME, &stat->total_time);
  curl_easy_getinfo(curl, CURLINFO_SIZE_DOWNLOAD_T, &bytes);
  curl_easy_getinfo(curl, CURLINFO_FILETIME_T, &file_time);
  stat->bytes = static_cast<uint64_t>(bytes);
  if (file_time >= 0) {
    stat->file_time = static_cast<int32_t>(std::min<curl_off_t>(file_time, INT32_MAX));
  }
}

long response_code(CURL *curl) {
  long code = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code);
  return code;
}

// An error response may be of any size: it counts as an error response, not as a body that is too
// large.
CURLcode perform(CURL *curl, const setup &rules, const body_sink &sink) {
  if (rules.outcome() != CURLE_OK) {
    return rules.outcome();
  }
  const CURLcode result = curl_easy_perform(curl);
  if (!sink.is_exceeded && result != CURLE_FILESIZE_EXCEEDED) {
    return result;
  }
  return response_code(curl) >= http_error ? CURLE_OK : CURLE_FILESIZE_EXCEEDED;
}

// The request body {"files": [names]}; null if there are no names, or when out of memory.
json_text request_body(const zot_list *names) {
  const zot::json_tree body(cJSON_CreateObject());
  cJSON *const files = body != nullptr ? cJSON_AddArrayToObject(body.get(), "files") : nullptr;
  if (files == nullptr) {
    return nullptr;
  }
  for (const zot_list *node = names->next; node != nullptr && node != names; node = node->next) {
    // The node is the first member, so its address is the entry's.
    const char *const name = reinterpret_cast<const remote_file_name *>(node)->name;
    if (name[0] == '\0') {
      continue;
    }
    cJSON *const item = cJSON_CreateString(name);
    if (item == nullptr || !cJSON_AddItemToArray(files, item)) {
      cJSON_Delete(item);
      return nullptr;
    }
  }
  return json_text(files->child != nullptr ? cJSON_Print(body.get()) : nullptr);
}

// Renames a completed download to its final name and, if `mem` is given, reads it into memory.
int take_over(zot::file_stream &file, const char *tmp_path, const char *path, zot_file_mem *mem) {
  if (std::fclose(file.release()) != 0) {
    return -1;
  }
  const bool is_in_place = std::rename(tmp_path, path) == 0;
  if (mem == nullptr) {
    return 0;
  }
  // The file at that name is from an earlier download.
  if (!is_in_place) {
    return -1;
  }
  uint32_t size = 0;
  char *const data = read_file(path, &size);
  *mem = {data, data != nullptr ? size : 0};
  return data != nullptr ? 0 : -1;
}

}  // namespace

int zot::get_remote_file_within(const char *url, const char *path, zot_file_mem *mem,
                                uint32_t timeout, uint64_t limit, remote_file_stat *stat) {
  if (zot::is_blank(url) || zot::is_blank(path)) {
    return -1;
  }
  char tmp_path[ZOT_PATH_SIZE];
  const int length = std::snprintf(tmp_path, sizeof tmp_path, "%s.tmp", path);
  if (length < 0 || static_cast<size_t>(length) >= sizeof tmp_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  zot::file_stream file(std::fopen(tmp_path, "wbe"));
  if (file == nullptr) {
    return -1;
  }
  const curl_session session;
  const curl_handle curl(curl_easy_init());
  if (curl == nullptr) {
    return -1;
  }
  body_sink sink{file.get(), limit};
  setup rules = set_transfer_rules(curl.get(), url, &sink);
  const auto seconds = static_cast<long>(std::min(timeout, longest_timeout));
  rules.wish(curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, seconds));
  if (const CURLcode result = perform(curl.get(), rules, sink); result != CURLE_OK) {
    return static_cast<int>(result);
  }
  const long code = response_code(curl.get());
  if (stat != nullptr) {
    fill_statistics(curl.get(), stat);
    stat->http_code = static_cast<int32_t>(code);
  }
  return code == http_ok ? take_over(file, tmp_path, path, mem) : -1;
}

int zot::get_remote_file_set_within(const char *url, const char *path, const zot_list *names,
                                    uint64_t limit, remote_file_stat *stat) {
  if (zot::is_blank(url) || zot::is_blank(path) || names == nullptr) {
    return -1;
  }
  const json_text body = request_body(names);
  const curl_session session;
  const curl_handle curl(curl_easy_init());
  if (curl == nullptr) {
    return -1;
  }
  zot::file_stream file(std::fopen(path, "wbe"));
  if (file == nullptr) {
    // The caller notices when it looks for the file.
    return 0;
  }
  body_sink sink{file.get(), limit};
  setup rules = set_transfer_rules(curl.get(), url, &sink);
  rules.wish(curl_easy_setopt(curl.get(), CURLOPT_BUFFERSIZE, archive_buffer_size));
  rules.need(curl_easy_setopt(curl.get(), CURLOPT_POST, 1L));
  // Without a body libcurl would read one from standard input.
  const char *const posted = body != nullptr ? body.get() : "";
  rules.need(curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, posted));
  if (const CURLcode result = perform(curl.get(), rules, sink); result != CURLE_OK) {
    return static_cast<int>(result);
  }
  if (stat != nullptr) {
    fill_statistics(curl.get(), stat);
  }
  const bool is_complete = std::fclose(file.release()) == 0;
  return is_complete && response_code(curl.get()) == http_ok ? 0 : -1;
}

void zot_util_watch_transfers(zot_transfer_cb cb, void *arg) {
  watcher = {cb, arg};
}

int get_remote_file_stat(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout,
                         remote_file_stat *stat) {
  return zot::get_remote_file_within(url, path, mem, timeout, 0, stat);
}

int get_remote_file(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout) {
  return get_remote_file_stat(url, path, mem, timeout, nullptr);
}

int get_remote_file_set_stat(const char *url, const char *path, const zot_list *names,
                             uint32_t /*spare*/, remote_file_stat *stat) {
  return zot::get_remote_file_set_within(url, path, names, 0, stat);
}

int get_remote_file_set(const char *url, const char *path, const zot_list *names, uint32_t spare) {
  return get_remote_file_set_stat(url, path, names, spare, nullptr);
}

ZOT_PLAIN_NAME(get_remote_file_stat);
ZOT_PLAIN_NAME(get_remote_file);
ZOT_PLAIN_NAME(get_remote_file_set_stat);
ZOT_PLAIN_NAME(get_remote_file_set);
