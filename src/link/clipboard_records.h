// SPDX-License-Identifier: Apache-2.0
// What the two ends tell each other about the clipboard. Keys on the wire are the names of the members.
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "base/json_fields.h"
#include "base/uuid.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace vexil {

enum class ClipboardKind { text, image };
constexpr std::array<std::string_view, 2> jsonNames(json::Tag<ClipboardKind>) {
    return {"text", "image"};
}

enum class ClipboardScope { history, favorites };
constexpr std::array<std::string_view, 2> jsonNames(json::Tag<ClipboardScope>) {
    return {"history", "favorites"};
}

struct ClipboardCategory {
    Uuid id;
    std::string name;
    std::string colorTag;
    std::int64_t order = 0; // sort position

    bool operator==(const ClipboardCategory&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardCategory>) {
    using R = ClipboardCategory;
    return std::tuple{json::Field{"id", &R::id}, json::Field{"name", &R::name}, json::Field{"colorTag", &R::colorTag},
                      json::Field{"order", &R::order}};
}

// The store's full entry. It does not travel: the link sees summaries and payloads.
struct ClipboardEntry {
    Uuid id;
    ClipboardKind kind = ClipboardKind::text;
    std::optional<std::string> text;
    std::optional<std::string> imageFileName;
    std::optional<Bytes> imageData;
    std::string contentHash;
    Date createdAt;
    Date lastCopiedAt;
    bool isFavorite = false;
    std::optional<Uuid> categoryID;
    std::optional<Date> pinnedAt;
    std::optional<std::string> alias;
    std::optional<std::vector<Date>> usageTimestamps;

    bool operator==(const ClipboardEntry&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardEntry>) {
    using R = ClipboardEntry;
    return std::tuple{json::Field{"id", &R::id},
                      json::Field{"kind", &R::kind},
                      json::Field{"text", &R::text},
                      json::Field{"imageFileName", &R::imageFileName},
                      json::Field{"imageData", &R::imageData},
                      json::Field{"contentHash", &R::contentHash},
                      json::Field{"createdAt", &R::createdAt},
                      json::Field{"lastCopiedAt", &R::lastCopiedAt},
                      json::Field{"isFavorite", &R::isFavorite},
                      json::Field{"categoryID", &R::categoryID},
                      json::Field{"pinnedAt", &R::pinnedAt},
                      json::Field{"alias", &R::alias},
                      json::Field{"usageTimestamps", &R::usageTimestamps}};
}

// One row of a list.
struct ClipboardRowSummary {
    Uuid id;
    ClipboardScope scope = ClipboardScope::history;
    ClipboardKind kind = ClipboardKind::text;
    std::string preview;
    Date lastCopiedAt;
    bool isPinned = false;
    bool isFavorite = false;
    std::optional<Uuid> categoryID;
    std::optional<std::string> alias;
    std::optional<Bytes> thumbnail; // an encoded image

    bool operator==(const ClipboardRowSummary&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardRowSummary>) {
    using R = ClipboardRowSummary;
    return std::tuple{json::Field{"id", &R::id},
                      json::Field{"scope", &R::scope},
                      json::Field{"kind", &R::kind},
                      json::Field{"preview", &R::preview},
                      json::Field{"lastCopiedAt", &R::lastCopiedAt},
                      json::Field{"isPinned", &R::isPinned},
                      json::Field{"isFavorite", &R::isFavorite},
                      json::Field{"categoryID", &R::categoryID},
                      json::Field{"alias", &R::alias},
                      json::Field{"thumbnail", &R::thumbnail}};
}

struct ClipboardStoreSnapshot {
    std::int64_t revision = 0;
    std::vector<ClipboardRowSummary> history;
    std::vector<ClipboardRowSummary> favorites;
    std::vector<ClipboardCategory> categories;

    bool operator==(const ClipboardStoreSnapshot&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardStoreSnapshot>) {
    using R = ClipboardStoreSnapshot;
    return std::tuple{json::Field{"revision", &R::revision}, json::Field{"history", &R::history},
                      json::Field{"favorites", &R::favorites}, json::Field{"categories", &R::categories}};
}

struct ClipboardEntryRef {
    Uuid id;
    ClipboardScope scope = ClipboardScope::history;

    bool operator==(const ClipboardEntryRef&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardEntryRef>) {
    using R = ClipboardEntryRef;
    return std::tuple{json::Field{"id", &R::id}, json::Field{"scope", &R::scope}};
}

struct ClipboardEntryPayload {
    ClipboardKind kind = ClipboardKind::text;
    std::optional<std::string> text;
    bool hasAttachment = false; // the image travels as the attachment

    bool operator==(const ClipboardEntryPayload&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardEntryPayload>) {
    using R = ClipboardEntryPayload;
    return std::tuple{json::Field{"kind", &R::kind}, json::Field{"text", &R::text},
                      json::Field{"hasAttachment", &R::hasAttachment}};
}

struct ClipboardPasteboardChange {
    ClipboardKind kind = ClipboardKind::text;
    std::optional<std::string> text;
    bool hasAttachment = false; // the image travels as the attachment

    bool operator==(const ClipboardPasteboardChange&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardPasteboardChange>) {
    using R = ClipboardPasteboardChange;
    return std::tuple{json::Field{"kind", &R::kind}, json::Field{"text", &R::text},
                      json::Field{"hasAttachment", &R::hasAttachment}};
}

struct ClipboardPinRequest {
    Uuid id;
    bool isPinned = false; // the new state

    bool operator==(const ClipboardPinRequest&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardPinRequest>) {
    using R = ClipboardPinRequest;
    return std::tuple{json::Field{"id", &R::id}, json::Field{"isPinned", &R::isPinned}};
}

struct ClipboardFavoriteRequest {
    Uuid id;
    ClipboardScope scope = ClipboardScope::history;
    bool isFavorite = false; // the new state
    std::optional<Uuid> categoryID;

    bool operator==(const ClipboardFavoriteRequest&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardFavoriteRequest>) {
    using R = ClipboardFavoriteRequest;
    return std::tuple{json::Field{"id", &R::id}, json::Field{"scope", &R::scope},
                      json::Field{"isFavorite", &R::isFavorite}, json::Field{"categoryID", &R::categoryID}};
}

struct ClipboardEditRequest {
    Uuid id;
    ClipboardScope scope = ClipboardScope::history;
    std::optional<std::string> alias;
    std::optional<Uuid> categoryID;
    std::optional<std::string> text; // only where the text is edited too

    bool operator==(const ClipboardEditRequest&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardEditRequest>) {
    using R = ClipboardEditRequest;
    return std::tuple{json::Field{"id", &R::id}, json::Field{"scope", &R::scope}, json::Field{"alias", &R::alias},
                      json::Field{"categoryID", &R::categoryID}, json::Field{"text", &R::text}};
}

struct ClipboardShortcutState {
    bool hotkeyActive = false;

    bool operator==(const ClipboardShortcutState&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardShortcutState>) {
    return std::tuple{json::Field{"hotkeyActive", &ClipboardShortcutState::hotkeyActive}};
}

struct ClipboardHello {
    std::string nonce; // as last broadcast in the heartbeat
    std::string app;   // name and build of the main application
    std::string build;

    bool operator==(const ClipboardHello&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardHello>) {
    using R = ClipboardHello;
    return std::tuple{json::Field{"nonce", &R::nonce}, json::Field{"app", &R::app}, json::Field{"build", &R::build}};
}

struct ClipboardHelloAck {
    std::string app;
    std::vector<std::string> features; // names of the methods that the companion serves or sends

    bool operator==(const ClipboardHelloAck&) const = default;
};
constexpr auto jsonFields(json::Tag<ClipboardHelloAck>) {
    using R = ClipboardHelloAck;
    return std::tuple{json::Field{"app", &R::app}, json::Field{"features", &R::features}};
}

// The payload of a request that has nothing to say.
struct ClipboardLinkEmpty {
    bool operator==(const ClipboardLinkEmpty&) const = default;
};
constexpr std::tuple<> jsonFields(json::Tag<ClipboardLinkEmpty>) {
    return {};
}

} // namespace vexil
