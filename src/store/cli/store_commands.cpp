// SPDX-License-Identifier: Apache-2.0
#include "store/cli/store_commands.h"

#include "store/cli/history_listing.h"
#include "store/database/store_database.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace vexil {

namespace {

// None where there is no store yet.
Result<std::optional<StoreDatabase>, StoreError> openExisting(const StoreFolder& folder) {
    std::error_code error;
    if (std::filesystem::status(folder.database(), error).type() == std::filesystem::file_type::not_found)
        return std::optional<StoreDatabase>();
    auto database = StoreDatabase::open(folder.database(), StoreDatabase::Mode::existing);
    if (!database)
        return Failure{database.error()};
    return std::optional(std::move(database).value());
}

Result<Done, StoreError> writeAll(int output, ByteView bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(output, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return Failure{StoreError{std::string("the output cannot be written: ") + std::strerror(errno)}};
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return Done{};
}

// The beginning of an id in its canonical form; none where no id begins like that.
std::optional<std::string> canonicalBeginning(std::string_view typed) {
    std::string canonical;
    for (const char c : typed) {
        if (c == '-')
            continue;
        if (std::string_view("0123456789abcdefABCDEF").find(c) == std::string_view::npos)
            return std::nullopt;
        const std::size_t length = canonical.size();
        if (length == 8 || length == 13 || length == 18 || length == 23)
            canonical.push_back('-');
        canonical.push_back(c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c);
    }
    if (canonical.empty() || canonical.size() > Uuid::kTextLength)
        return std::nullopt;
    return canonical;
}

StoreError noEntry(std::string_view id) {
    return {"no entry has the id " + std::string(id)};
}

Result<Uuid, StoreError> findEntry(StoreDatabase& database, std::string_view typed) {
    const auto beginning = canonicalBeginning(typed);
    if (!beginning)
        return Failure{noEntry(typed)};
    const auto ids = database.idsStartingWith(*beginning, 2);
    if (!ids)
        return Failure{ids.error()};
    if (ids->empty())
        return Failure{noEntry(typed)};
    if (ids->size() > 1)
        return Failure{StoreError{std::string(typed) + " begins the ids of several entries, such as " +
                                  ids->front().toString() + " and " + ids->back().toString()}};
    return ids->front();
}

} // namespace

Result<Done, StoreError> listHistory(const StoreFolder& folder, ListFormat format, int output) {
    auto database = openExisting(folder);
    if (!database)
        return Failure{database.error()};
    std::vector<StoredEntry> history;
    if (*database) {
        auto read = (*database)->entries(ClipboardScope::history, std::numeric_limits<std::int64_t>::max(),
                                         StoreDatabase::Thumbnails::leave);
        if (!read)
            return Failure{read.error()};
        history = std::move(read).value();
    }
    return format == ListFormat::json ? writeAll(output, historyJson(history))
                                      : writeAll(output, bytesOf(historyTable(history)));
}

Result<Done, StoreError> showEntry(const StoreFolder& folder, std::string_view id, int output) {
    auto database = openExisting(folder);
    if (!database)
        return Failure{database.error()};
    if (!*database)
        return Failure{noEntry(id)};
    const auto found = findEntry(**database, id);
    if (!found)
        return Failure{found.error()};
    const auto content = (*database)->content(*found);
    if (!content)
        return Failure{content.error()};
    if (!*content)
        return Failure{noEntry(id)};
    if ((*content)->kind == ClipboardKind::image && ::isatty(output) == 1)
        return Failure{StoreError{std::string(id) + " is an image; write it to a file: vexil-store show " +
                                  std::string(id) + " > picture.jpg"}};
    return writeAll(output, (*content)->data);
}

} // namespace vexil
