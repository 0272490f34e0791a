// SPDX-License-Identifier: Apache-2.0
// The profiles of host names that the companion is to put into force.
#pragma once

#include "base/date.h"
#include "base/result.h"
#include "base/uuid.h"
#include "link/hosts_records.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

enum class HostsProfileChange {
    done,
    alreadySo,
    noSuchProfile,
    nameTaken,  // by another profile, in whatever case
    badName,    // no line of words with single blanks between them, or longer than kMaxNameBytes
    badContent, // not a text in UTF-8, or with zero bytes
    tooLarge,   // all profiles together would be longer than kMaxBytes
};

// A light view on the database, got from StoreDatabase::hostsProfiles() and used at once. Every change is one
// transaction, and one that is done counts as a new revision of the profiles, which is not that of the entries. Whether
// the lines of a content make sense is not looked at.
class HostsProfiles {
public:
    static constexpr std::size_t kMaxNameBytes = 200;
    // Of a snapshot as JSON, so that it fits into a frame of the link.
    static constexpr std::size_t kMaxBytes = 12'000'000;

    explicit HostsProfiles(SqliteConnection& connection) : connection_(connection) {}

    // Raised by every change, by whichever process.
    Result<std::int64_t, StoreError> revision();
    struct Counts {
        std::int64_t all = 0;
        std::int64_t enabled = 0;
    };
    Result<Counts, StoreError> counts();
    // In the order in which they were added.
    Result<std::vector<HostsProfile>, StoreError> list();
    // The same at one revision.
    Result<HostsSnapshot, StoreError> snapshot();

    // By its name, in whatever case.
    Result<std::optional<HostsProfile>, StoreError> named(std::string_view name);
    // At most `limit` profiles whose id in its 36-character form begins with `prefix`, which is in upper case.
    Result<std::vector<HostsProfile>, StoreError> startingWith(std::string_view prefix, std::size_t limit);

    // Behind the others. Its id is a new one.
    Result<HostsProfileChange, StoreError> add(const HostsProfile& profile);
    // The same within a transaction of the caller.
    Result<HostsProfileChange, StoreError> insert(const HostsProfile& profile);
    Result<HostsProfileChange, StoreError> setContent(const Uuid& id, const std::string& content, Date now);
    Result<HostsProfileChange, StoreError> rename(const Uuid& id, const std::string& name, Date now);
    Result<HostsProfileChange, StoreError> setEnabled(const Uuid& id, bool isEnabled, Date now);
    Result<HostsProfileChange, StoreError> remove(const Uuid& id);

private:
    template <class Edit> Result<HostsProfileChange, StoreError> change(const Uuid& id, Date now, Edit edit);
    Result<HostsProfileChange, StoreError> check(const HostsProfile& profile);
    Result<HostsProfileChange, StoreError> countChange();

    SqliteConnection& connection_;
};

} // namespace vexil
