// SPDX-License-Identifier: Apache-2.0
// The failures that this side of the link knows by name.
#pragma once

#include "link/clipboard_link_envelope.h"

#include <string>
#include <string_view>

namespace vexil::link_error {

struct Known {
    std::string_view code;
    std::string_view message;

    operator ClipboardLinkError() const { return {std::string(code), std::string(message)}; }
};

// Made here, for our own callers.
inline constexpr Known kClosed{"closed", "Link closed"};
inline constexpr Known kTimeout{"timeout", "No response"};
inline constexpr Known kTooLarge{"too_large", "Message too large"};

// Travelling on the link.
inline constexpr Known kUnknownMessage{"unknown_message", "Unknown message"};
inline constexpr Known kVersionMismatch{"version_mismatch", "Protocol version mismatch"};
inline constexpr Known kBadNonce{"bad_nonce", "Nonce rejected"};
inline constexpr Known kNotFound{"not_found", "No such entry"};

} // namespace vexil::link_error
