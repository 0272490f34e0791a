// SPDX-License-Identifier: Apache-2.0
// What every fuzz target shares: its entry, and a check that holds in every build.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace vexil::fuzz {

// Ends the program, which is how a fuzzer learns that it found something.
inline void require(bool condition, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

} // namespace vexil::fuzz
