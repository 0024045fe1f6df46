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
//   accepted                             the highest sequence so far, the SHA-256 of its K, and the
//                                        element
//   .lock                                locked by the relay
//
// The link is replaced in one rename, after everything that the new publication needs is on the
// medium. So a publication is served whole or not at all, whenever the relay is interrupted.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/files/folder.hpp"
#include "tools/model/manifest.hpp"
#include "tools/model/names.hpp"
#include "tools/publication/served_files.hpp"
#include "tools/relay/kept_publication.hpp"
#include "tools/relay/object_folder.hpp"

namespace zotconf {

using kept_ptr = std::shared_ptr<const kept_publication>;

class relay_store : public served_files {
 public:
  // Creates the folder if it is missing, locks it, and puts the current publication into service:
  // the one that `current` names or, if files of it are missing, the newest one that has all its
  // files. Of the files only names and sizes are checked, so this takes little time. Throws
  // std::runtime_error if the folder cannot be used or another relay has locked it.
  relay_store(const fs::path &root, element who);

  // The publication in service; null if there is none. Safe to call from several threads.
  [[nodiscard]] kept_ptr current() const;
  // Whether a file of the current publication was found missing or damaged since it was put into
  // service. Safe to call from several threads.
  [[nodiscard]] bool is_damaged() const;
  // The highest sequence of the publications that were put into service, and the SHA-256 of the K
  // that had it; 0 and empty: none had one. It stays when that publication is damaged and an older
  // one is put into service, so a client of this store can accept the same K again and no older
  // one.
  [[nodiscard]] uint64_t last_sequence() const;
  [[nodiscard]] std::string last_digest() const;

  // The files that are not in the store, each one once. Reads the files that no kept publication
  // names, because a power failure may have damaged them before they were flushed. Reads all files
  // if one was found damaged.
  [[nodiscard]] std::vector<published_file> missing(const manifest &content) const;
  // Where the bytes of a file are collected until it is complete. Throws std::runtime_error if the
  // checksum of the file is not a SHA-256.
  [[nodiscard]] fs::path partial(const published_file &file) const;
  // Verifies the collected bytes and adds the file to the store. Returns false, and removes them,
  // if they are not those of the file. Throws std::system_error if the medium fails.
  [[nodiscard]] bool take(const published_file &file);
  // Bytes that may still be written.
  [[nodiscard]] uint64_t room() const;

  // Puts a publication into service. All of its files are in the store. When this returns, it is on
  // the medium. Throws std::runtime_error if a file is missing, or std::system_error if the medium
  // fails; the current one then stays.
  void put_into_service(std::string_view k, const std::optional<std::string> &signature,
                        manifest content);
  // Removes publications beyond the newest `keep` ones (the current one always stays), the files
  // that neither the others nor `wanted` names, partial files that neither the current one nor
  // `wanted` names, and what an interruption has left. Throws nothing: what cannot be removed is
  // removed next time.
  void clean(size_t keep, const manifest &wanted) noexcept;

  // Opens a file of the publication in service, or a config file of another kept one, for a client
  // that has read the K before. Verifies its bytes: a missing or damaged one ends with
  // std::runtime_error, and a damaged config file is removed. Safe to call from several threads,
  // also while a publication is put into service or removed.
  [[nodiscard]] zot::descriptor open_member(const std::vector<std::string> &parts) const override;
  [[nodiscard]] std::optional<std::string> read_checksum(const element &who) const override;
  // The SHA-256 of the K in service.
  [[nodiscard]] std::string state() const override;

 private:
  struct accepted_k {
    uint64_t sequence = 0;
    std::string digest;
  };
  struct looked_up {
    bool is_known = false;  // a kept publication has such a file
    std::string checksum;   // of a config file; empty: another file
    zot::descriptor file{-1};
  };

  void load_accepted();
  void load();
  [[nodiscard]] bool is_whole(const kept_publication &publication) const;
  void note_sequence(const kept_publication &publication);
  void prepare(const folder &own, const kept_publication &next, std::string_view k) const;
  void replace_current(const folder &own, kept_ptr next);
  void drop_beyond(size_t keep);
  [[nodiscard]] std::vector<kept_ptr> kept() const;
  [[nodiscard]] looked_up look_up(const std::vector<std::string> &parts) const;
  [[nodiscard]] looked_up look_up_latest(const std::string &name) const;
  void note_damage(const std::string &checksum) const;

  folder root_;
  element who_;
  zot::descriptor lock_;
  object_folder objects_;
  // Held while files are moved or removed, so what is found missing at that time is missing.
  mutable std::mutex changing_;
  mutable std::mutex mutex_;    // of the following; locked after changing_
  std::vector<kept_ptr> kept_;  // whole ones; the current one first
  accepted_k accepted_;
  mutable bool is_damaged_ = false;
};

}  // namespace zotconf
