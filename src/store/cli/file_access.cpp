// SPDX-License-Identifier: Apache-2.0
#include "store/cli/file_access.h"

#include "store/cli/command_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vexil {

Descriptor::~Descriptor() {
    if (number_ >= 0)
        ::close(number_);
}

Failure<CommandError> fileFailure(const std::filesystem::path& file, const std::string& what) {
    const int reason = errno;
    return failure(file.string() + " " + what + ": " + std::strerror(reason));
}

Result<Descriptor, CommandError> openForReading(const std::filesystem::path& file) {
    const int number = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (number < 0)
        return fileFailure(file, "cannot be read");
    return Descriptor(number);
}

Result<Bytes, CommandError> readFile(const std::filesystem::path& file, std::size_t limit) {
    const auto descriptor = openForReading(file);
    if (!descriptor)
        return Failure{descriptor.error()};
    auto content = InputStream(descriptor->number(), false).readAll(limit);
    if (!content)
        return failure(file.string() + ": " + content.error().sentence);
    return std::move(content).value();
}

} // namespace vexil
