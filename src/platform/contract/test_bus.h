// SPDX-License-Identifier: Apache-2.0
// A message bus that a test starts, kills and freezes.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace vexil {

class TestBus {
public:
    // Prepares a place for a bus, in a temporary folder, without one.
    TestBus();
    ~TestBus();
    TestBus(const TestBus&) = delete;
    TestBus& operator=(const TestBus&) = delete;

    // The same before, during and after a bus.
    [[nodiscard]] const std::string& address() const { return address_; }
    // True once it takes connections.
    [[nodiscard]] bool start();
    // As if it had crashed.
    void kill();
    // It takes connections still, and answers nothing.
    void freeze(bool frozen) const;

private:
    std::filesystem::path folder_;
    std::string address_;
    std::optional<pid_t> process_;
};

} // namespace vexil
