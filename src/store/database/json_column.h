// SPDX-License-Identifier: Apache-2.0
// Records that are kept in a column as the JSON in which they travel.
#pragma once

#include "base/json.h"

#include <optional>
#include <string>

namespace vexil {

template <json::Described Record> std::optional<std::string> jsonOf(const std::optional<Record>& record) {
    if (!record)
        return std::nullopt;
    Bytes text;
    json::append(text, *record);
    return std::string(textOf(text));
}

// None also where it cannot be read.
template <json::Described Record> std::optional<Record> recordOf(const std::optional<std::string>& column) {
    if (!column)
        return std::nullopt;
    auto record = json::read<Record>(bytesOf(*column));
    return record ? std::optional(std::move(record).value()) : std::nullopt;
}

} // namespace vexil
