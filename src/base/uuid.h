// SPDX-License-Identifier: Apache-2.0
// 128-bit identifiers.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vexil {

class Uuid {
public:
    static constexpr std::size_t kTextLength = 36;

    Uuid() = default; // all zero bits
    static Uuid random();
    // Takes the 36-character form with hyphens, in either case; anything else is none.
    static std::optional<Uuid> parse(std::string_view text);

    // Upper-case 36-character form.
    [[nodiscard]] std::string toString() const;
    // The same into kTextLength characters at `text`, without a terminator.
    void writeTo(char* text) const;
    [[nodiscard]] const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    auto operator<=>(const Uuid&) const = default; // NOLINT(modernize-use-nullptr): there is none

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace vexil

template <> struct std::hash<vexil::Uuid> { std::size_t operator()(const vexil::Uuid& id) const noexcept; };
