// SPDX-License-Identifier: Apache-2.0
// `zotconf sign`: signs the K files of a publisher that does not have the key.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct sign_options {
  fs::path publication;
  fs::path certificate;
  std::string key;     // a file or a URI
  std::string subsys;  // empty: all
  std::string index;   // empty: all
};

// Signs each K that has no signature of this certificate. Returns an exit status. If a K cannot be
// signed, the others are still signed, and the status is a failure. Throws std::exception if the
// key cannot be used or a file cannot be written.
int run_sign(const sign_options &options, const console &where);

}  // namespace zotconf
