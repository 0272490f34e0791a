// SPDX-License-Identifier: Apache-2.0
// A point in wall-clock time.
#pragma once

#include <chrono>
#include <compare>

namespace vexil {

// Seconds since 2001-01-01 00:00:00 UTC, fractions included: the form in which a date travels.
struct Date {
    double secondsSinceReference = 0;

    static constexpr double kUnixSecondsAtReference = 978'307'200.0;

    static constexpr Date fromUnixSeconds(double seconds) { return {seconds - kUnixSecondsAtReference}; }
    [[nodiscard]] constexpr double unixSeconds() const { return secondsSinceReference + kUnixSecondsAtReference; }

    auto operator<=>(const Date&) const = default; // NOLINT(modernize-use-nullptr): there is none
};

} // namespace vexil
