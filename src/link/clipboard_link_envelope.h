// SPDX-License-Identifier: Apache-2.0
// The JSON object that every message of the link is.
#pragma once

#include "base/bytes.h"
#include "base/json_fields.h"
#include "link/clipboard_link_payload.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace vexil {

inline constexpr std::int64_t kClipboardLinkVersion = 1;

enum class ClipboardLinkEnvelopeKind { request, response, event };
constexpr std::array<std::string_view, 3> jsonNames(json::Tag<ClipboardLinkEnvelopeKind>) {
    return {"request", "response", "event"};
}

// Why a request failed: at the peer, or on the way to it.
struct ClipboardLinkError {
    std::string code;    // snake case, for programs
    std::string message; // short and English, for people

    bool operator==(const ClipboardLinkError&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardLinkError>) {
    using R = ClipboardLinkError;
    return std::tuple{json::Field{"code", &R::code}, json::Field{"message", &R::message}};
}

// An envelope without its payload.
struct ClipboardLinkHeader {
    std::int64_t v = kClipboardLinkVersion;
    std::string id; // of the request; a response repeats it
    ClipboardLinkEnvelopeKind t = ClipboardLinkEnvelopeKind::request;
    std::string m; // a response repeats its request's, known or not
    std::optional<ClipboardLinkError> e;

    bool operator==(const ClipboardLinkHeader&) const = default;
};

struct ClipboardLinkEnvelope {
    ClipboardLinkHeader header;
    // std::monostate where absent, where the method calls for none or is unknown, where it is not what the method calls
    // for, and where it was not wanted.
    ClipboardLinkPayload payload;

    bool operator==(const ClipboardLinkEnvelope&) const = default;
};

// Whether the payload of an envelope is worth reading.
using PayloadFilter = std::function<bool(const ClipboardLinkHeader&)>;

// Reads each byte once where `id`, `m` and `t` come before `p`; keys may come in any order. None where the text is not
// JSON from end to end, or its header is not one. A payload that the filter does not want is skipped.
[[nodiscard]] std::optional<ClipboardLinkEnvelope> decodeEnvelope(ByteView json, const PayloadFilter& wanted = nullptr);

// Appends to `out`. `v` comes first and the payload, left out where it is std::monostate, last.
void appendEnvelope(Bytes& out, const ClipboardLinkHeader& header, const ClipboardLinkPayload& payload);

} // namespace vexil
