// SPDX-License-Identifier: Apache-2.0
// Owned byte buffers and views of them.
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace vexil {

// Leaves new elements uninitialised when none is given a value, so that resize() before a read costs no fill.
template <class T> struct UninitializedAllocator : std::allocator<T> {
    template <class U> struct rebind { using other = UninitializedAllocator<U>; };
    template <class U> void construct(U* place) { ::new (static_cast<void*>(place)) U; }
    template <class U, class... Args> void construct(U* place, Args&&... args) {
        ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
    }
};

using Bytes = std::vector<std::uint8_t, UninitializedAllocator<std::uint8_t>>;
using ByteView = std::span<const std::uint8_t>;

inline ByteView bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string_view textOf(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline Bytes copyOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace vexil
