// SPDX-License-Identifier: Apache-2.0
// `zotconf publish`: makes a folder of files the latest configuration of one element.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/model/names.hpp"
#include "tools/output/console.hpp"
#include "tools/publication/signature.hpp"
#include "tools/publication/wave.hpp"

namespace zotconf {

struct publish_options {
  fs::path source;           // contains <Category>/<key>
  fs::path fleet;            // contains common and elements; empty: one element is published
  std::optional<wave> part;  // of the fleet; nullopt: all of it
  fs::path publication;
  element who;
  std::string cluster;
  std::string config_id;  // empty: not stated in K
  std::string firmware;   // empty: not stated in K
  bool allow_empty = false;
  // The largest share of the previous K's entries that may be removed, in percent. Default: 50, or
  // 100 for an empty configuration that is allowed.
  std::optional<unsigned> max_removed;
  bool dry_run = false;
  fs::path sign_certificate;  // empty: K is not signed
  std::string sign_key;       // a file, or a URI of a key
};

// Empty if K is not to be signed. Throws std::runtime_error if the certificate or key is unusable.
std::optional<signer> signer_of(const publish_options &options);
// The next K, without its element and sequence.
manifest next_manifest(const publish_options &options, std::vector<published_file> files);

// A refused publication and a dry run write no files. Returns an exit status. Throws std::exception
// when files cannot be read or written.
int run_publish(const publish_options &options, const console &where);

}  // namespace zotconf
