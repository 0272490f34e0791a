// SPDX-License-Identifier: Apache-2.0
#include "base/uuid.h"

#include <uuid/uuid.h>

#include <cstring>

namespace vexil {

Uuid Uuid::random() {
    Uuid id;
    uuid_generate_random(id.bytes_.data());
    return id;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != kTextLength)
        return std::nullopt;
    Uuid id;
    if (uuid_parse_range(text.data(), text.data() + text.size(), id.bytes_.data()) != 0)
        return std::nullopt;
    return id;
}

std::string Uuid::toString() const {
    std::array<char, kTextLength + 1> text{};
    uuid_unparse_upper(bytes_.data(), text.data());
    return {text.data(), kTextLength};
}

} // namespace vexil

std::size_t std::hash<vexil::Uuid>::operator()(const vexil::Uuid& id) const noexcept {
    std::size_t word = 0; // the bits are random already
    std::memcpy(&word, id.bytes().data(), sizeof word);
    return word;
}
