// SPDX-License-Identifier: Apache-2.0
// The files that a publication service sends, wherever they are kept.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/model/names.hpp"
#include "utilities/owner.hpp"

namespace zotconf {

class served_files {
 public:
  served_files() = default;
  served_files(const served_files &) = delete;
  served_files &operator=(const served_files &) = delete;
  virtual ~served_files() = default;

  // Opens the file of a publication with this relative path. The result is not open when there is
  // no such file. Called by several threads at once.
  [[nodiscard]] virtual zot::descriptor open_member(
      const std::vector<std::string> &parts) const = 0;
  [[nodiscard]] virtual std::optional<std::string> read_checksum(const element &who) const = 0;
  // A text that changes when another publication is put into service; empty: it is not known when.
  [[nodiscard]] virtual std::string state() const { return ""; }
};

}  // namespace zotconf
