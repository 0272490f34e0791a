// SPDX-License-Identifier: Apache-2.0
// Records to and from JSON. A record is described once, beside its struct, and is read and written from that:
//
//     enum class Size { small, large };
//     constexpr std::array<std::string_view, 2> jsonNames(json::Tag<Size>) { return {"small", "large"}; }
//
//     struct Shirt {
//         Uuid id;
//         Size size = Size::small;
//         std::optional<std::string> print;
//     };
//     constexpr auto jsonFields(json::Tag<Shirt>) {
//         return std::tuple{json::Field{"id", &Shirt::id}, json::Field{"size", &Shirt::size},
//                           json::Field{"print", &Shirt::print}};
//     }
//
// Members may be bool, integers, double, std::string, Uuid (upper-case string; either case is read), Date (number),
// Bytes (base64 string), described enums (string; the names stand in the order of the values, which count from zero),
// described records, std::vector and std::optional of these.
//
// Reading: an optional may be missing or null; any other missing key is an error. Unknown keys are skipped. Of a key
// that comes twice the last value counts, though each must be of the right type. Everything that is wrong anywhere in
// the text makes the whole of it unreadable.
// Writing: keys in the order of the description, absent optionals left out.
#pragma once

#include "base/bytes.h"
#include "base/json_fields.h"
#include "base/json_reader.h"
#include "base/json_writer.h"
#include "base/result.h"

namespace vexil::json {

template <class T> [[nodiscard]] Result<T, Error> read(ByteView text) {
    Reader in(text);
    T value{};
    if (readValue(in, value) && in.finish())
        return value;
    return Failure{in.error()};
}

// Costs one allocation at most.
template <class T> void append(Bytes& out, const T& value) {
    Writer writer(out, sizeHint(value));
    writeValue(writer, value);
}

} // namespace vexil::json
