// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/durable_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

namespace vexil {

namespace {

namespace fs = std::filesystem;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { (void)close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] bool isOpen() const { return number_ >= 0; }
    // Some file systems only tell here that a write went wrong.
    [[nodiscard]] bool close() {
        const int number = std::exchange(number_, -1);
        return number < 0 || ::close(number) == 0;
    }

private:
    int number_;
};

bool makeFolder(const fs::path& folder) {
    std::error_code error;
    if (folder.empty() || fs::is_directory(folder, error))
        return true;
    if (folder.has_parent_path() && folder.parent_path() != folder && !makeFolder(folder.parent_path()))
        return false;
    return ::mkdir(folder.c_str(), S_IRWXU) == 0 || errno == EEXIST;
}

bool writeAll(int descriptor, ByteView bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        else if (written == 0 || errno != EINTR)
            return false;
    }
    return true;
}

fs::path followed(const fs::path& file) {
    std::error_code error;
    if (!fs::is_symlink(file, error))
        return file;
    const fs::path target = fs::weakly_canonical(file, error);
    return error ? file : target;
}

} // namespace

bool replaceFileDurably(const fs::path& file, ByteView contents) {
    const fs::path target = followed(file);
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    if (!makeFolder(folder))
        return false;
    std::string temporary = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    Descriptor descriptor(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!descriptor.isOpen())
        return false;
    const bool isWritten =
        writeAll(descriptor.number(), contents) && ::fsync(descriptor.number()) == 0 && descriptor.close();
    if (!isWritten || ::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    // The name itself is only safe once the folder is; by now the new file is in place whatever this says.
    const Descriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.isOpen() && ::fsync(directory.number()) == 0;
}

} // namespace vexil
