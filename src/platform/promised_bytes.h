// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/unique_function.h"

#include <mutex>
#include <optional>
#include <utility>

namespace vexil {

// A form of some bytes that is costly to make: made on the thread that first asks for it, and then kept.
class PromisedBytes {
public:
    using Maker = UniqueFunction<std::optional<Bytes>(ByteView source)>;

    // `make` is called at most once, on any thread.
    explicit PromisedBytes(Maker make) : make_(std::move(make)) {}

    // Blocks for as long as making takes. None where they cannot be made. Any thread; every call names the same source.
    const std::optional<Bytes>& madeFrom(ByteView source) {
        std::call_once(once_, [this, source] {
            bytes_ = make_(source);
            make_ = nullptr;
        });
        return bytes_;
    }

private:
    std::once_flag once_;
    Maker make_;
    std::optional<Bytes> bytes_;
};

} // namespace vexil
