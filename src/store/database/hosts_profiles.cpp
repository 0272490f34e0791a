// SPDX-License-Identifier: Apache-2.0
#include "store/database/hosts_profiles.h"

#include "base/json.h"
#include "base/text.h"
#include "base/text_folding.h"

#include <utility>

namespace vexil {

namespace {

using Access = SqliteConnection::Access;
using Change = HostsProfileChange;

constexpr std::string_view kAll =
    "SELECT id, name, content, is_enabled, updated_at FROM hosts_profiles ORDER BY sort_order";
constexpr std::string_view kByName =
    "SELECT id, name, content, is_enabled, updated_at FROM hosts_profiles WHERE folded_name = ?";
// '~' sorts behind every character of an id.
constexpr std::string_view kById = "SELECT id, name, content, is_enabled, updated_at FROM hosts_profiles "
                                   "WHERE id >= ?1 AND id < ?1 || '~' ORDER BY id LIMIT ?2";

Result<std::vector<HostsProfile>, StoreError> profilesOf(Result<SqliteStatement, StoreError> statement) {
    if (!statement)
        return Failure{statement.error()};
    std::vector<HostsProfile> profiles;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return profiles;
        profiles.push_back({.id = statement->id(0).value_or(Uuid()),
                            .name = statement->text(1),
                            .content = statement->text(2),
                            .isEnabled = statement->integer(3) != 0,
                            .updatedAt = statement->date(4)});
    }
}

std::string foldedName(std::string_view name) {
    return text::fold(name, text::CaseRules::common);
}

// In a snapshot, with the comma behind it.
std::size_t sizeOf(const HostsProfile& profile) {
    Bytes text;
    json::append(text, profile);
    return text.size() + 1;
}

bool isGoodName(const std::string& name) {
    return !name.empty() && name.size() <= HostsProfiles::kMaxNameBytes &&
           text::foldedToOneLine(name, name.size(), name.size()) == name;
}

bool isGoodContent(const std::string& content) {
    return text::isValidUtf8(content) && content.find('\0') == std::string::npos;
}

} // namespace

Result<std::int64_t, StoreError> HostsProfiles::revision() {
    return connection_.number("SELECT hosts_revision FROM store");
}

Result<HostsProfiles::Counts, StoreError> HostsProfiles::counts() {
    auto statement = connection_.prepare("SELECT count(*), coalesce(sum(is_enabled), 0) FROM hosts_profiles");
    if (!statement)
        return Failure{statement.error()};
    const auto stepped = statement->step();
    if (!stepped)
        return Failure{stepped.error()};
    return Counts{statement->integer(0), statement->integer(1)};
}

Result<std::vector<HostsProfile>, StoreError> HostsProfiles::list() {
    return profilesOf(connection_.prepare(kAll));
}

Result<HostsSnapshot, StoreError> HostsProfiles::snapshot() {
    return connection_.transaction(Access::read, [&]() -> Result<HostsSnapshot, StoreError> {
        const auto number = revision();
        if (!number)
            return Failure{number.error()};
        auto profiles = list();
        if (!profiles)
            return Failure{profiles.error()};
        return HostsSnapshot{*number, std::move(profiles).value()};
    });
}

Result<std::optional<HostsProfile>, StoreError> HostsProfiles::named(std::string_view name) {
    auto profiles = profilesOf(connection_.prepare(kByName, std::string_view(foldedName(name))));
    if (!profiles)
        return Failure{profiles.error()};
    return profiles->empty() ? std::nullopt : std::optional(std::move(profiles->front()));
}

Result<std::vector<HostsProfile>, StoreError> HostsProfiles::startingWith(std::string_view prefix, std::size_t limit) {
    return profilesOf(connection_.prepare(kById, prefix, limit));
}

Result<Change, StoreError> HostsProfiles::add(const HostsProfile& profile) {
    return connection_.transaction(Access::write, [&] { return insert(profile); });
}

Result<Change, StoreError> HostsProfiles::insert(const HostsProfile& profile) {
    auto checked = check(profile);
    if (!checked || *checked != Change::done)
        return checked;
    if (auto added = connection_.run(
            "INSERT INTO hosts_profiles (id, name, folded_name, content, is_enabled, updated_at, size, sort_order) "
            "SELECT ?, ?, ?, ?, ?, ?, ?, coalesce(max(sort_order) + 1, 0) FROM hosts_profiles",
            profile.id, profile.name, foldedName(profile.name), profile.content, profile.isEnabled, profile.updatedAt,
            sizeOf(profile));
        !added)
        return Failure{added.error()};
    return countChange();
}

Result<Change, StoreError> HostsProfiles::check(const HostsProfile& profile) {
    if (!isGoodName(profile.name))
        return Change::badName;
    if (!isGoodContent(profile.content))
        return Change::badContent;
    const auto namesakes = connection_.number("SELECT count(*) FROM hosts_profiles WHERE folded_name = ? AND id <> ?",
                                              foldedName(profile.name), profile.id);
    if (!namesakes)
        return Failure{namesakes.error()};
    if (*namesakes != 0)
        return Change::nameTaken;
    const auto others =
        connection_.number("SELECT coalesce(sum(size), 0) FROM hosts_profiles WHERE id <> ?", profile.id);
    if (!others)
        return Failure{others.error()};
    return static_cast<std::size_t>(*others) + sizeOf(profile) > kMaxBytes ? Change::tooLarge : Change::done;
}

// Runs `edit`, which returns whether it changed anything, on the profile and writes it back.
template <class Edit> Result<Change, StoreError> HostsProfiles::change(const Uuid& id, Date now, Edit edit) {
    return connection_.transaction(Access::write, [&]() -> Result<Change, StoreError> {
        auto found = startingWith(id.toString(), 1);
        if (!found)
            return Failure{found.error()};
        if (found->empty())
            return Change::noSuchProfile;
        HostsProfile& profile = found->front();
        if (!edit(profile))
            return Change::alreadySo;
        profile.updatedAt = now;
        auto checked = check(profile);
        if (!checked || *checked != Change::done)
            return checked;
        if (auto written = connection_.run("UPDATE hosts_profiles SET name = ?, folded_name = ?, content = ?, "
                                           "is_enabled = ?, updated_at = ?, size = ? WHERE id = ?",
                                           profile.name, foldedName(profile.name), profile.content, profile.isEnabled,
                                           now, sizeOf(profile), id);
            !written)
            return Failure{written.error()};
        return countChange();
    });
}

Result<Change, StoreError> HostsProfiles::setContent(const Uuid& id, const std::string& content, Date now) {
    return change(id, now, [&](HostsProfile& profile) { return std::exchange(profile.content, content) != content; });
}

Result<Change, StoreError> HostsProfiles::rename(const Uuid& id, const std::string& name, Date now) {
    return change(id, now, [&](HostsProfile& profile) { return std::exchange(profile.name, name) != name; });
}

Result<Change, StoreError> HostsProfiles::setEnabled(const Uuid& id, bool isEnabled, Date now) {
    return change(id, now,
                  [&](HostsProfile& profile) { return std::exchange(profile.isEnabled, isEnabled) != isEnabled; });
}

Result<Change, StoreError> HostsProfiles::remove(const Uuid& id) {
    return connection_.transaction(Access::write, [&]() -> Result<Change, StoreError> {
        if (auto removed = connection_.run("DELETE FROM hosts_profiles WHERE id = ?", id); !removed)
            return Failure{removed.error()};
        return connection_.changedRows() == 0 ? Result<Change, StoreError>(Change::noSuchProfile) : countChange();
    });
}

Result<Change, StoreError> HostsProfiles::countChange() {
    if (auto counted = connection_.run("UPDATE store SET hosts_revision = hosts_revision + 1"); !counted)
        return Failure{counted.error()};
    return Change::done;
}

} // namespace vexil
