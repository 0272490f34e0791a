// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/json.h"

#include <string_view>
#include <vector>

namespace vexil {

// A JSON array with one record a line.
template <class Record> [[nodiscard]] Bytes jsonArrayOfLines(const std::vector<Record>& records) {
    Bytes text;
    const auto append = [&](std::string_view part) {
        const ByteView bytes = bytesOf(part);
        text.insert(text.end(), bytes.begin(), bytes.end());
    };
    append("[");
    std::string_view before = "\n";
    for (const Record& record : records) {
        append(before);
        json::append(text, record);
        before = ",\n";
    }
    append(records.empty() ? "]\n" : "\n]\n");
    return text;
}

} // namespace vexil
