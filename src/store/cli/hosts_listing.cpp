// SPDX-License-Identifier: Apache-2.0
#include "store/cli/hosts_listing.h"

#include "hosts/hosts_syntax.h"
#include "store/cli/counted.h"
#include "store/cli/json_lines.h"

#include <cstdint>
#include <string>
#include <tuple>

namespace vexil {

namespace {

struct ListedProfile {
    Uuid id;
    std::string name;
    bool isEnabled = false;
    Date updatedAt;
    std::int64_t hostnames = 0;
    std::int64_t issues = 0;
    std::string content;
};
constexpr auto jsonFields(json::Tag<ListedProfile>) {
    using R = ListedProfile;
    return std::tuple{json::Field{"id", &R::id},
                      json::Field{"name", &R::name},
                      json::Field{"isEnabled", &R::isEnabled},
                      json::Field{"updatedAt", &R::updatedAt},
                      json::Field{"hostnames", &R::hostnames},
                      json::Field{"issues", &R::issues},
                      json::Field{"content", &R::content}};
}

ListedProfile listed(const HostsProfile& profile) {
    const auto parsed = hosts_syntax::parse(profile.content);
    return {.id = profile.id,
            .name = profile.name,
            .isEnabled = profile.isEnabled,
            .updatedAt = profile.updatedAt,
            .hostnames = hosts_syntax::hostnameTotal(parsed.entries),
            .issues = static_cast<std::int64_t>(parsed.issues.size()),
            .content = profile.content};
}

} // namespace

Table hostsTable(const std::vector<HostsProfile>& profiles) {
    using Align = Table::Column::Align;
    Table table({{}, {}, {.align = Align::right}, {}});
    for (const HostsProfile& profile : profiles) {
        const ListedProfile row = listed(profile);
        table.addRow({{{row.name, row.isEnabled ? TextStyle::strong : TextStyle::faint}},
                      {row.isEnabled ? TextPiece("enabled") : TextPiece("disabled", TextStyle::faint)},
                      {{counted(row.hostnames, "host name"), TextStyle::plain}},
                      {{row.issues > 0 ? counted(row.issues, "issue") : "", TextStyle::accent}}});
    }
    return table;
}

Bytes hostsJson(const std::vector<HostsProfile>& profiles) {
    std::vector<ListedProfile> rows;
    rows.reserve(profiles.size());
    for (const HostsProfile& profile : profiles)
        rows.push_back(listed(profile));
    return jsonArrayOfLines(rows);
}

} // namespace vexil
