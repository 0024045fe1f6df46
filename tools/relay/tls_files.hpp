// SPDX-License-Identifier: Apache-2.0
// Checks the files of a TLS client before the first connection, so that a wrong one is found when
// the program starts.
#pragma once

#include "tools/files/file_io.hpp"

namespace zotconf {

// Throws std::runtime_error if there is no certificate in the file.
void check_trusted_certificates(const fs::path &ca);

// Throws std::runtime_error if certificate or key cannot be read or do not match.
void check_client_certificate(const fs::path &certificate, const fs::path &key);

}  // namespace zotconf
