// SPDX-License-Identifier: Apache-2.0
// A program that a test starts, and ends at the latest with itself.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace vexil {

class ChildProcess {
public:
    // Standard input and output are the files that are named, empty for /dev/null; standard error is dropped.
    // `inherited` is left open for it, as its descriptor 3, where it is not negative.
    explicit ChildProcess(const std::vector<std::string>& command, const std::string& input = "",
                          const std::string& output = "", int inherited = -1);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess(ChildProcess&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess(); // kills it where it still runs

    void signal(int number) const;
    // Waits for its end; the exit status, or 128 and the signal.
    int wait();

private:
    pid_t id_;
};

} // namespace vexil
