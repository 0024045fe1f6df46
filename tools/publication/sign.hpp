// SPDX-License-Identifier: Apache-2.0
// `zotconf sign`: signs what a publisher without the key wrote.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct sign_options {
  fs::path publication;
  fs::path certificate;
  std::string key;     // a file, or a URI of a key
  std::string subsys;  // empty: all
  std::string index;   // empty: all
};

// Signs each K that has no signature of this certificate. Returns an exit status: a failure when
// one cannot be signed, after all others are. Throws std::exception when the key cannot be used or
// a file cannot be written.
int run_sign(const sign_options &options, const console &where);

}  // namespace zotconf
