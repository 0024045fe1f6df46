// SPDX-License-Identifier: Apache-2.0
// What an operator can do about a problem of a publication.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"
#include "tools/service/publication_summary.hpp"

namespace zotconf {

struct problem_advice {
  std::string sentence;
  std::string command;  // for a shell; SRC stands for the folder to publish
};

// The summary must have a problem. `folder` is the publication folder.
problem_advice advice_for(const publication_summary &summary, const fs::path &folder);

}  // namespace zotconf
