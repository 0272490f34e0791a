// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/cli/command_streams.h"

#include <cstdint>
#include <string>
#include <utility>

namespace vexil {

// How far a long command has come, on a terminal; elsewhere nothing. The line is gone with its owner.
class ProgressBar {
public:
    ProgressBar(const OutputStream& output, std::string what) : output_(output), what_(std::move(what)) {}
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // A total of 0 is one that nobody knows: then there is no bar.
    void setTotal(std::uint64_t total) { total_ = total; }
    void moveTo(std::uint64_t done);

private:
    const OutputStream& output_;
    std::string what_;
    std::uint64_t total_ = 0;
    std::uint64_t shown_ = kNothing; // percent
    static constexpr std::uint64_t kNothing = 101;
};

} // namespace vexil
