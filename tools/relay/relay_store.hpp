// SPDX-License-Identifier: Apache-2.0
// What a relay keeps on disk. A file is stored once, under its SHA-256, whichever publications name
// it.
//
//   objects/<2 digits>/<62 digits>       a file that was verified
//   partial/<64 digits>                  a file that has arrived in part
//   publications/<SHA-256 of K>/k        K of one publication, all of whose files are in objects
//   publications/<SHA-256 of K>/checksum
//   publications/<SHA-256 of K>/signature   if it was signed
//   current                              symbolic link to the publication that is served
//   .lock                                locked by the relay
//
// The link is replaced in one rename, after everything that the new publication needs is on the
// medium. So a publication is served whole or not at all, whenever the relay is interrupted.
#pragma once

#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/model/names.hpp"
#include "tools/service/served_files.hpp"

namespace zotconf {

// A publication that the store keeps.
struct kept_publication {
  std::string digest;  // SHA-256 of K, which is its name in the store
  manifest content;
  std::optional<std::string> signature;
  std::time_t kept_since = 0;  // the wall clock when it was put into service
  // From "config/<Category>/<key>/<version>" to the index in content.files.
  std::unordered_map<std::string, size_t> members;
};

class relay_store : public served_files {
 public:
  // Creates the folder if it is missing, locks it, and puts the current publication into service:
  // the one that `current` names or, if files of it are missing, the newest one that has all its
  // files. Only names and sizes are checked, so this takes no time. Throws std::runtime_error if
  // the folder cannot be used or another relay has locked it.
  relay_store(fs::path root, element who);

  // The publication in service; null if there is none. Safe to call from several threads.
  [[nodiscard]] std::shared_ptr<const kept_publication> current() const;
  // Whether a file of the current publication was found missing or damaged since it was put into
  // service. Safe to call from several threads.
  [[nodiscard]] bool is_damaged() const;
  // The highest sequence of the publications that were put into service; 0: none had one.
  [[nodiscard]] uint64_t last_sequence() const;

  // The files that are not in the store, each one once.
  [[nodiscard]] std::vector<published_file> missing(const manifest &content) const;
  // Where the bytes of a file are collected until it is complete.
  [[nodiscard]] fs::path partial(const published_file &file) const;
  // Verifies the collected bytes and adds the file to the store. Returns false, and removes them,
  // if they are not those of the file. Throws std::system_error if the medium fails.
  [[nodiscard]] bool take(const published_file &file);
  // Bytes that may still be written.
  [[nodiscard]] uint64_t room() const;

  // Puts a publication into service. All of its files are in the store. When this returns, it is on
  // the medium. Throws std::system_error if the medium fails; the current one then stays.
  void put_into_service(std::string_view k, const std::optional<std::string> &signature,
                        manifest content);
  // Removes publications beyond the newest `keep` ones (the current one always stays), the files
  // that none of the others names, and partial files that the current one does not name. Throws
  // nothing: what cannot be removed is removed next time.
  void clean(size_t keep) noexcept;

  // Opens a file of the publication in service, or a config file of another kept one, for a client
  // that has read the K before. Verifies the bytes of config files: a damaged one is removed and
  // ends with std::runtime_error.
  [[nodiscard]] zot::descriptor open_member(const std::vector<std::string> &parts) const override;
  [[nodiscard]] std::optional<std::string> read_checksum(const element &who) const override;

 private:
  fs::path root_;
  element who_;
};

}  // namespace zotconf
