// SPDX-License-Identifier: Apache-2.0
// How described records, and what they are made of, are read and written. json.h says how to describe one.
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "base/json_reader.h"
#include "base/json_writer.h"
#include "base/uuid.h"

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace vexil::json {

template <class T> struct Tag {};

template <class Record, class Member> struct Field {
    std::string_view key;
    Member Record::*member;
};
template <class Record, class Member> Field(const char*, Member Record::*) -> Field<Record, Member>;

template <class T>
concept Described = requires {
    jsonFields(Tag<T>{});
};
template <class T>
concept Named = std::is_enum_v<T> && requires {
    jsonNames(Tag<T>{});
};
template <class T>
concept Integer = std::signed_integral<T>;

template <class T> inline constexpr bool kIsOptional = false;
template <class T> inline constexpr bool kIsOptional<std::optional<T>> = true;

// Declared before use, because a record may hold any of the others.
template <class T> [[nodiscard]] bool readValue(Reader& in, std::optional<T>& value);
template <class T> [[nodiscard]] bool readValue(Reader& in, std::vector<T>& values);
template <Described T> [[nodiscard]] bool readValue(Reader& in, T& record);
template <class T> void writeValue(Writer& out, const std::optional<T>& value);
template <class T> void writeValue(Writer& out, const std::vector<T>& values);
template <Described T> void writeValue(Writer& out, const T& record);
template <class T> std::size_t sizeHint(const std::optional<T>& value);
template <class T> std::size_t sizeHint(const std::vector<T>& values);
template <Described T> std::size_t sizeHint(const T& record);

// --- scalars

[[nodiscard]] inline bool readValue(Reader& in, bool& value) {
    return in.readBool(value);
}
[[nodiscard]] inline bool readValue(Reader& in, double& value) {
    return in.readDouble(value);
}
[[nodiscard]] inline bool readValue(Reader& in, std::string& value) {
    return in.readString(value);
}
[[nodiscard]] inline bool readValue(Reader& in, Uuid& value) {
    return in.readUuid(value);
}
[[nodiscard]] inline bool readValue(Reader& in, Date& value) {
    return in.readDouble(value.secondsSinceReference);
}
[[nodiscard]] inline bool readValue(Reader& in, Bytes& value) {
    return in.readBase64(value);
}
template <Integer T> [[nodiscard]] bool readValue(Reader& in, T& value) {
    std::int64_t wide = 0;
    if (!in.readInteger(wide))
        return false;
    if (!std::in_range<T>(wide))
        return in.fail("integer out of range");
    value = static_cast<T>(wide);
    return true;
}
template <Named T> [[nodiscard]] bool readValue(Reader& in, T& value) {
    static constexpr auto kNames = jsonNames(Tag<T>{});
    std::size_t index = 0;
    if (!in.readName(kNames, index))
        return false;
    value = static_cast<T>(index);
    return true;
}

inline void writeValue(Writer& out, bool value) {
    out.boolean(value);
}
inline void writeValue(Writer& out, double value) {
    out.number(value);
}
inline void writeValue(Writer& out, const std::string& value) {
    out.string(value);
}
inline void writeValue(Writer& out, const Uuid& value) {
    out.uuid(value);
}
inline void writeValue(Writer& out, const Date& value) {
    out.number(value.secondsSinceReference);
}
inline void writeValue(Writer& out, const Bytes& value) {
    out.base64(value);
}
template <Integer T> void writeValue(Writer& out, T value) {
    out.integer(value);
}
template <Named T> void writeValue(Writer& out, T value) {
    static constexpr auto kNames = jsonNames(Tag<T>{});
    out.string(kNames.at(static_cast<std::size_t>(value)));
}

inline constexpr std::size_t kScalarHint = 24; // most numbers, words and names
template <class T>
requires(std::is_arithmetic_v<T> || Named<T>) std::size_t sizeHint(const T&) {
    return kScalarHint;
}
inline std::size_t sizeHint(const Date&) {
    return kScalarHint;
}
inline std::size_t sizeHint(const Uuid&) {
    return Uuid::kTextLength + 2;
}
inline std::size_t sizeHint(const std::string& value) {
    return value.size() + value.size() / 8 + 8;
}
inline std::size_t sizeHint(const Bytes& value) {
    return value.size() / 3 * 4 + 8;
}

// --- optionals: a record leaves out the absent ones; within an array an absent one is a null

template <class T> bool readValue(Reader& in, std::optional<T>& value) {
    value.reset();
    return in.takeNull() || readValue(in, value.emplace());
}
template <class T> void writeValue(Writer& out, const std::optional<T>& value) {
    if (value)
        writeValue(out, *value);
    else
        out.null();
}
template <class T> std::size_t sizeHint(const std::optional<T>& value) {
    return value ? sizeHint(*value) : kScalarHint;
}

// --- arrays

template <class T> bool readValue(Reader& in, std::vector<T>& values) {
    values.clear();
    return in.readArray([&] { return readValue(in, values.emplace_back()); });
}
template <class T> void writeValue(Writer& out, const std::vector<T>& values) {
    char before = '[';
    for (const T& value : values) {
        out.punctuation(before);
        writeValue(out, value);
        before = ',';
    }
    if (values.empty())
        out.punctuation('[');
    out.punctuation(']');
}
template <class T> std::size_t sizeHint(const std::vector<T>& values) {
    std::size_t size = 2;
    for (const T& value : values)
        size += sizeHint(value) + 1;
    return size;
}

// --- records

template <class Record> struct MemberReader {
    std::string_view key;
    bool isRequired = true;
    bool (*read)(Reader&, Record&) = nullptr;
};

template <class Record> constexpr auto memberReaders() {
    return []<std::size_t... I>(std::index_sequence<I...>) {
        constexpr auto kFields = jsonFields(Tag<Record>{});
        return std::array<MemberReader<Record>, sizeof...(I)>{MemberReader<Record>{
            std::get<I>(kFields).key,
            !kIsOptional<std::remove_cvref_t<decltype(std::declval<Record&>().*(std::get<I>(kFields).member))>>,
            [](Reader& in, Record& record) {
                auto& member = record.*(std::get<I>(jsonFields(Tag<Record>{})).member);
                if constexpr (Described<std::remove_cvref_t<decltype(member)>>)
                    member = {}; // where a key comes twice, the first value's optionals are not to shine through
                return readValue(in, member);
            }}...};
    }
    (std::make_index_sequence<std::tuple_size_v<decltype(jsonFields(Tag<Record>{}))>>{});
}

// Where `key` stands among the members, looking at `guess` first; past them all where it is none of them.
template <class Record, std::size_t Count>
std::size_t indexOf(const std::array<MemberReader<Record>, Count>& members, std::string_view key, std::size_t guess) {
    for (std::size_t tried = 0; tried < Count; ++tried) {
        const std::size_t i = guess + tried < Count ? guess + tried : guess + tried - Count;
        if (members[i].key.data() == key.data() || members[i].key == key)
            return i;
    }
    return Count;
}

template <Described T> bool readValue(Reader& in, T& record) {
    static constexpr auto kMembers = memberReaders<T>();
    static constexpr std::size_t kCount = kMembers.size();
    std::array<bool, kCount> seen{};
    std::size_t next = 0; // writers keep to an order
    std::string_view expected = kCount > 0 ? kMembers.front().key : std::string_view();
    const bool isRead = in.readObject(expected, [&](std::string_view key) {
        const std::size_t i = indexOf(kMembers, key, next);
        if (i == kCount)
            return in.skip();
        seen[i] = true;
        next = i + 1 < kCount ? i + 1 : 0;
        expected = kMembers[next].key;
        return kMembers[i].read(in, record);
    });
    if (!isRead)
        return false;
    for (std::size_t i = 0; i < kCount; ++i) {
        if (kMembers[i].isRequired && !seen[i])
            return in.fail("a required key is missing");
    }
    return true;
}

template <class T> void writeMember(Writer& out, std::string_view key, const T& value, bool& isFirst) {
    if constexpr (kIsOptional<T>) {
        if (!value)
            return;
    }
    out.key(key, isFirst);
    isFirst = false;
    writeValue(out, value);
}

template <Described T> void writeValue(Writer& out, const T& record) {
    bool isFirst = true;
    out.punctuation('{');
    std::apply([&](const auto&... field) { (writeMember(out, field.key, record.*(field.member), isFirst), ...); },
               jsonFields(Tag<T>{}));
    out.punctuation('}');
}

template <Described T> std::size_t sizeHint(const T& record) {
    return std::apply(
        [&](const auto&... field) {
            return (std::size_t{2} + ... + (field.key.size() + 4 + sizeHint(record.*(field.member))));
        },
        jsonFields(Tag<T>{}));
}

} // namespace vexil::json
