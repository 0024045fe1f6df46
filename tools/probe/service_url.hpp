// SPDX-License-Identifier: Apache-2.0
// The address of a service: http://HOST, with or without a port.
#pragma once

#include <string>
#include <string_view>

namespace zotconf {

// Returns an empty text when valid, else the error.
std::string check_service_url(std::string_view url);

}  // namespace zotconf
