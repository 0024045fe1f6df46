// SPDX-License-Identifier: Apache-2.0
// A publication that a relay's store keeps: a folder with K, its checksum file and its signature.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/folder.hpp"
#include "tools/model/manifest.hpp"
#include "tools/model/names.hpp"

namespace zotconf {

struct kept_publication {
  std::string digest;  // SHA-256 of K, which is its name in the store
  manifest content;
  std::optional<std::string> signature;
  std::time_t kept_since = 0;     // the wall clock when it was put into service
  std::vector<uint32_t> by_name;  // indexes of content.files, sorted by category, key and version
};

kept_publication make_publication(std::string_view k, std::optional<std::string> signature,
                                  manifest content);

// The file that is requested as config/<Category>/<key>/<version>; null if K does not name it.
const published_file *find_file(const kept_publication &where,
                                const std::vector<std::string> &parts);
// Whether K names a file with this SHA-256.
bool names_checksum(const kept_publication &where, const std::string &checksum);

// The names of its files in its folder. `digest_of` is the SHA-256 that the file has to have; it is
// nullopt for the signature of a publication without one.
inline constexpr const char *kept_k = "k";
inline constexpr const char *kept_checksum = "checksum";
inline constexpr const char *kept_signature = "signature";
std::optional<std::string> digest_of(const kept_publication &publication, std::string_view name);

// Reads a publication back. Returns nullopt if K or the checksum file is damaged, or K is that of
// another element.
std::optional<kept_publication> read_publication(const folder &own, const std::string &digest,
                                                 const element &who);

// Writes the files of a publication under temporary names, moves them to their names, or removes
// them. Until K is moved, which is last, the folder is no publication.
void write_beside(const folder &own, const kept_publication &publication, std::string_view k);
void move_into_place(const folder &own, const kept_publication &publication);
void remove_beside(const folder &own);
// Removes the folder of a publication, K first.
void remove_publication(const folder &all, const std::string &digest);

}  // namespace zotconf
