// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/checks.hpp"

#include <array>

#include "tools/probe/archive_requests.hpp"
#include "tools/probe/knowledge_checks.hpp"

namespace zotconf {
namespace {

void check_connection(subject &on) {
  static_cast<void>(on.service.connect());
  on.is_connected = true;
}

// The library itself opens one connection after the other. Others come from other programs, and
// from processes that were killed.
void check_beside(const subject &on, const std::string &bytes) {
  const raw_connection other = on.service.connect();
  if (!bytes.empty()) {
    other.send(bytes);
  }
  static_cast<void>(fetch_checksum_file(on));
}

void check_idle_connection(subject &on) {
  check_beside(on, "");
}

void check_half_request(subject &on) {
  check_beside(on, "GET /file/knowledge/AP HTTP/1.1\r\nHost: " + on.service.host());
}

void check_half_body(subject &on) {
  check_beside(on, "POST /tgz HTTP/1.1\r\nHost: " + on.service.host() +
                       "\r\nContent-Length: 1000\r\n\r\n{\"files\": [");
}

constexpr std::array<check, 18> checks = {{
    {"connection", "the service accepts a connection within the time limit", need::nothing,
     check_connection},
    {"checksum_file",
     "GET of the checksum file: 200 within the time limit, with 64 lower-case hexadecimal digits, "
     "then a newline or nothing",
     need::connection, check_checksum_file},
    {"knowledge_file",
     "GET of K: 200 within the time limit, at most 64 MiB, valid for the library, no . or .. in a "
     "path",
     need::connection, check_k},
    {"match", "the checksum file announces the SHA-256 of K", need::checksum_and_k, check_match},
    {"repeated", "GET of both files again: the same bytes", need::checksum_and_k, check_repeated},
    {"all_files",
     "POST /tgz for all files of K: a gzip tar archive with exactly these files, and with the "
     "sizes and SHA-256 that K states",
     need::k, check_all_files},
    {"one_file", "POST /tgz for the first file of K: an archive with this file only", need::file,
     check_one_file},
    {"double_slashes", "POST /tgz takes the two slashes after /config as one", need::file,
     check_double_slashes},
    {"no_files", "POST /tgz with an empty list: an archive without files", need::connection,
     check_no_files},
    {"empty_body", "POST /tgz with an empty body: an archive without files", need::connection,
     check_empty_body},
    {"expect_continue", "POST /tgz with Expect: 100-continue: the archive", need::file,
     check_expect_continue},
    {"large_body", "POST /tgz with a body of 2 MiB, most of it blanks: the archive", need::file,
     check_large_body},
    {"unknown_index", "GET of both files for an unknown index: 404", need::connection,
     check_unknown_index},
    {"missing_file", "POST /tgz for a file that does not exist: another status than 200", need::k,
     check_missing_file},
    {"idle_connection", "an answer within the time limit while another connection is idle",
     need::checksum, check_idle_connection},
    {"half_request",
     "an answer within the time limit while another client has sent half of a request",
     need::checksum, check_half_request},
    {"half_body", "an answer within the time limit while another client has sent half of a body",
     need::checksum, check_half_body},
    {"polls", "GET of both files, many times: never two mismatches or failures in a row",
     need::checksum_and_k, check_polls},
}};

}  // namespace

std::string missing_for(need what, const subject &on) {
  const bool needs_checksum = what == need::checksum || what == need::checksum_and_k;
  const bool needs_k = what == need::k || what == need::checksum_and_k || what == need::file;
  if (what != need::nothing && !on.is_connected) {
    return "no connection";
  }
  if (needs_checksum && !on.checksum_file) {
    return "no checksum file";
  }
  if (needs_k && !on.k) {
    return "no valid K";
  }
  return what == need::file && on.k->files.empty() ? "K names no file" : "";
}

std::span<const check> checks_of_service() {
  return checks;
}

}  // namespace zotconf
