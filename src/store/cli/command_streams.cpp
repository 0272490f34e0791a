// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_streams.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vexil {

namespace {

constexpr std::size_t kPiece = 64U << 10;

} // namespace

Result<Done, StoreError> OutputStream::write(ByteView bytes) const {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return Failure{StoreError{std::string("the output cannot be written: ") + std::strerror(errno)}};
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return Done{};
}

Result<std::size_t, StoreError> InputStream::readSome(Bytes& buffer, std::size_t limit) const {
    const std::size_t before = buffer.size();
    buffer.resize(before + limit);
    ssize_t count = 0;
    do {
        count = ::read(descriptor_, buffer.data() + before, limit);
    } while (count < 0 && errno == EINTR);
    buffer.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0)
        return Failure{StoreError{std::string("the input cannot be read: ") + std::strerror(errno)}};
    return static_cast<std::size_t>(count);
}

Result<Bytes, StoreError> InputStream::readAll(std::size_t limit) const {
    Bytes bytes;
    for (;;) {
        const auto count = readSome(bytes, kPiece);
        if (!count)
            return Failure{count.error()};
        if (*count == 0)
            return bytes;
        if (bytes.size() > limit)
            return Failure{StoreError{"the input is longer than " + std::to_string(limit) + " bytes"}};
    }
}

Result<std::string, StoreError> InputStream::readLine() const {
    Bytes typed;
    for (;;) { // a terminal hands out what was typed line by line
        const auto count = readSome(typed, 1);
        if (!count)
            return Failure{count.error()};
        if (*count == 0 || typed.back() == '\n')
            break;
    }
    std::string_view line = textOf(typed);
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    return std::string(line);
}

} // namespace vexil
