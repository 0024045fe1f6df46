// SPDX-License-Identifier: Apache-2.0
#include "tools/output/error_text.hpp"

#include <ostream>

#include "tools/output/plain_text.hpp"
#include "zot_conf.h"

namespace zotconf {

void tell_error(std::ostream &err, std::string_view what, std::string_view command) {
  err << "zotconf: " << printable(what) << '\n';
  tell_remedy(err, command);
}

void tell_warning(std::ostream &err, std::string_view what, std::string_view command) {
  tell_error(err, "warning: " + std::string(what), command);
}

void tell_remedy(std::ostream &err, std::string_view command) {
  if (!command.empty()) {
    err << "try: " << printable(command) << '\n';
  }
}

std::string command_after(int status) {
  return status == ZOT_ERR_SAME_AS_CORRUPTED ? "zotconf forget"
                                             : "zotconf explain " + std::to_string(status);
}

}  // namespace zotconf
