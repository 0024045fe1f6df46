// SPDX-License-Identifier: Apache-2.0
// Two blocking HTTP transfers: one file by GET, an archive of named files by POST.
#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace {

constexpr long http_ok = 200;
// libcurl counts milliseconds in an int and takes no longer limit.
constexpr uint32_t longest_timeout = INT_MAX / 1000;

// libcurl's global state for the time of one transfer.
class curl_session {
 public:
  curl_session() { curl_global_init(CURL_GLOBAL_ALL); }
  curl_session(const curl_session &) = delete;
  curl_session &operator=(const curl_session &) = delete;
  ~curl_session() { curl_global_cleanup(); }
};

using curl_handle = std::unique_ptr<CURL, zot::releaser<curl_easy_cleanup>>;
using curl_url_handle = std::unique_ptr<CURLU, zot::releaser<curl_url_cleanup>>;
using curl_text = std::unique_ptr<char, zot::releaser<curl_free>>;
using json_text = std::unique_ptr<char, zot::releaser<cJSON_free>>;

bool is_missing(const char *text) {
  return text == nullptr || text[0] == '\0';
}

size_t write_to_file(char *data, size_t size, size_t count, void *file) {
  return std::fwrite(data, size, count, static_cast<std::FILE *>(file));
}

bool is_loopback(const char *host) {
  constexpr size_t net_length = 4;
  const bool is_in_loopback_net =
      std::strncmp(host, "127.", net_length) == 0 &&
      host[net_length + std::strspn(host + net_length, "0123456789.")] == '\0';
  return is_in_loopback_net || ::strcasecmp(host, "localhost") == 0 ||
         std::strcmp(host, "[::1]") == 0;
}

bool names_loopback(const char *url) {
  const curl_url_handle parsed(curl_url());
  char *part = nullptr;
  if (parsed == nullptr ||
      curl_url_set(parsed.get(), CURLUPART_URL, url, CURLU_GUESS_SCHEME) != CURLUE_OK ||
      curl_url_get(parsed.get(), CURLUPART_HOST, &part, 0) != CURLUE_OK) {
    return false;
  }
  const curl_text host(part);
  return is_loopback(part);
}

// What both transfers have in common: no signals in the host process, nothing but HTTP, and no
// proxy between an element and its own service, whatever the environment names.
void set_transfer_rules(CURL *curl, const char *url) {
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075500
  // A libcurl without TLS refuses the pair as a whole.
  if (curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https") != CURLE_OK) {
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http");
  }
#else
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
  if (names_loopback(url)) {
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
  }
}

// Fills time, size and file time; the file time only when the service told one.
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

// {"files": [names]}; null when there is none to ask for, or without memory.
json_text request_body(const zot_list *names) {
  const zot::json_tree body(cJSON_CreateObject());
  cJSON *const files = body != nullptr ? cJSON_AddArrayToObject(body.get(), "files") : nullptr;
  if (files == nullptr) {
    return nullptr;
  }
  for (const zot_list *node = names->next; node != nullptr && node != names; node = node->next) {
    // The node is the first member, so it is the entry's address.
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

// Moves a completed download to its name, and into memory when that is asked for.
int take_over(zot::file_stream &file, const char *tmp_path, const char *path, zot_file_mem *mem) {
  if (std::fclose(file.release()) != 0) {
    return -1;
  }
  static_cast<void>(std::rename(tmp_path, path));
  if (mem == nullptr) {
    return 0;
  }
  uint32_t size = 0;
  char *const data = read_file(path, &size);
  *mem = {data, data != nullptr ? size : 0};
  return data != nullptr ? 0 : -1;
}

}  // namespace

int get_remote_file_stat(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout,
                         remote_file_stat *stat) {
  if (is_missing(url) || is_missing(path)) {
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
  curl_easy_setopt(curl.get(), CURLOPT_URL, url);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, write_to_file);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, file.get());
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT,
                   static_cast<long>(std::min(timeout, longest_timeout)));
  curl_easy_setopt(curl.get(), CURLOPT_FILETIME, 1L);
  set_transfer_rules(curl.get(), url);
  if (const CURLcode result = curl_easy_perform(curl.get()); result != CURLE_OK) {
    return static_cast<int>(result);
  }
  const long code = response_code(curl.get());
  if (stat != nullptr) {
    fill_statistics(curl.get(), stat);
    stat->http_code = static_cast<int32_t>(code);
  }
  return code == http_ok ? take_over(file, tmp_path, path, mem) : -1;
}

int get_remote_file(const char *url, const char *path, zot_file_mem *mem, uint32_t timeout) {
  return get_remote_file_stat(url, path, mem, timeout, nullptr);
}

int get_remote_file_set_stat(const char *url, const char *path, const zot_list *names,
                             uint32_t /*spare*/, remote_file_stat *stat) {
  if (is_missing(url) || is_missing(path) || names == nullptr) {
    return -1;
  }
  const json_text body = request_body(names);
  const curl_session session;
  const curl_handle curl(curl_easy_init());
  if (curl == nullptr) {
    return -1;
  }
  curl_easy_setopt(curl.get(), CURLOPT_URL, url);
  curl_easy_setopt(curl.get(), CURLOPT_POST, 1L);
  // Without a body libcurl would read one from standard input.
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body != nullptr ? body.get() : "");
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, write_to_file);
  curl_easy_setopt(curl.get(), CURLOPT_FILETIME, 1L);
  set_transfer_rules(curl.get(), url);
  zot::file_stream file(std::fopen(path, "wbe"));
  if (file == nullptr) {
    // The caller finds out when it looks for the file.
    return 0;
  }
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, file.get());
  if (const CURLcode result = curl_easy_perform(curl.get()); result != CURLE_OK) {
    return static_cast<int>(result);
  }
  if (stat != nullptr) {
    fill_statistics(curl.get(), stat);
  }
  const bool is_complete = std::fclose(file.release()) == 0;
  return is_complete && response_code(curl.get()) == http_ok ? 0 : -1;
}

int get_remote_file_set(const char *url, const char *path, const zot_list *names, uint32_t spare) {
  return get_remote_file_set_stat(url, path, names, spare, nullptr);
}
