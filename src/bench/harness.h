// SPDX-License-Identifier: Apache-2.0
// Measures beside references: a figure counts only as a ratio to something taken in the same run.
#pragma once

#include <chrono>
#include <concepts>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace vexil::bench {

// One iteration each; the value is in the unit of the Measure, and less is better. What is not to be timed (building
// the input, checking the outcome) is done inside, around millisecondsOf().
struct Trial {
    std::function<double()> measured;
    std::function<double()> reference;
};

struct Measure {
    std::string name; // as ./bench lists it: "link.decode"
    std::string unit; // "ms", "us", "MB"
    // Called when the measure is chosen, so that the others cost nothing; what the callables capture goes with them.
    std::function<Trial()> prepare;
    int rounds = 31;
    int warmUps = 3;
};

// The main() of a bench executable. Runs the measures one after another, measured and reference in turn, and prints one
// JSON object per measure and line: name, unit, the two medians, their 95th percentiles, and the rounds.
//   --list          names only
//   --only NAME     this one only; may be repeated
//   --rounds N      N rounds for each measure, without warming up where N is 1
// Returns the exit status: 0, or 1 with a sentence on standard error where an argument is wrong or a trial throws.
[[nodiscard]] int run(int argc, const char* const* argv, const std::vector<Measure>& measures);

template <std::invocable F> [[nodiscard]] double millisecondsOf(F&& work) {
    const auto begin = std::chrono::steady_clock::now();
    std::invoke(std::forward<F>(work));
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

template <std::invocable F> [[nodiscard]] double microsecondsOf(F&& work) {
    return 1000.0 * millisecondsOf(std::forward<F>(work));
}

// Makes the compiler believe that `value` is read, so that the work behind it is not optimised away.
template <class T> void keep(const T& value) {
    asm volatile("" : : "r"(&value) : "memory");
}

} // namespace vexil::bench
