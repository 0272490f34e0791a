// SPDX-License-Identifier: Apache-2.0
#include "store/cli/archive_reader.h"

#include "store/cli/archive_line.h"

#include <string>
#include <utility>

namespace vexil {

Result<Done, StoreError> ArchiveReader::readHeader() {
    const auto text = lines_.next();
    if (!text)
        return Failure{text.error()};
    const auto line = parseArchiveLine(text.value().value_or(ByteView()));
    if (!line || !line.value().header || line.value().header->format != ArchiveHeader::kFormat)
        return Failure{StoreError{"this is no file that vexil-store export has written"}};
    if (line.value().header->version != ArchiveHeader::kVersion)
        return Failure{StoreError{"the file has version " + std::to_string(line.value().header->version) +
                                  " of the format, this vexil-store reads version " +
                                  std::to_string(ArchiveHeader::kVersion)}};
    return Done{};
}

Result<std::optional<ArchivedItem>, StoreError> ArchiveReader::finish(std::int64_t expectedItems) {
    if (expectedItems != items_)
        return Failure{StoreError{"the file has " + std::to_string(items_) + " items where it says " +
                                  std::to_string(expectedItems)}};
    const auto more = lines_.next();
    if (!more)
        return Failure{more.error()};
    if (more.value())
        return Failure{StoreError{"the file goes on after its end"}};
    return std::optional<ArchivedItem>();
}

Result<std::optional<ArchivedItem>, StoreError> ArchiveReader::next() {
    if (lines_.lineNumber() == 0) {
        if (auto read = readHeader(); !read)
            return Failure{read.error()};
    }
    const auto text = lines_.next();
    if (!text)
        return Failure{text.error()};
    const auto& found = text.value();
    if (!found)
        return Failure{StoreError{"the file was cut off after this line"}};
    auto line = parseArchiveLine(*found);
    if (!line)
        return Failure{line.error()};
    if (const auto& end = line.value().end)
        return finish(end->items);
    auto item = itemOf(std::move(line).value());
    if (!item)
        return Failure{StoreError{"the file has a second header"}};
    ++items_;
    return item;
}

} // namespace vexil
