// SPDX-License-Identifier: Apache-2.0
#include "store/database/store_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace vexil {

namespace {

StoreError failure(const std::filesystem::path& path, const char* what, int error) {
    return {path.string() + " " + what + ": " + std::strerror(error)};
}

std::filesystem::path lockFileOf(const StoreFolder& folder) {
    return folder.path() / "serve.lock";
}

// Of an open file, unlike those of flock(), it can be asked for without being taken.
struct flock wholeFile(short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

Result<StoreFolder, StoreError> StoreFolder::find(std::string_view dataHome, std::string_view home) {
    const std::filesystem::path data(dataHome);
    if (data.is_absolute())
        return StoreFolder(data / "vexil-store");
    const std::filesystem::path person(home);
    if (person.is_absolute())
        return StoreFolder(person / ".local" / "share" / "vexil-store");
    return Failure{StoreError{"there is no place for the store: set HOME or XDG_DATA_HOME"}};
}

Result<Done, StoreError> StoreFolder::create() const {
    std::filesystem::path made;
    for (const auto& part : path_) {
        made /= part;
        if (::mkdir(made.c_str(), S_IRWXU) != 0 && errno != EEXIST)
            return Failure{failure(made, "cannot be made", errno)};
    }
    const int folder = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isPrivate = folder >= 0 && ::fchmod(folder, S_IRWXU) == 0;
    const int error = errno;
    if (folder >= 0)
        ::close(folder);
    if (!isPrivate)
        return Failure{failure(path_, "cannot be used as the store's folder", error)};
    return Done{};
}

Result<StoreLock, StoreError> StoreLock::take(const StoreFolder& folder) {
    const std::filesystem::path file = lockFileOf(folder);
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        return Failure{failure(file, "cannot be opened", errno)};
    StoreLock lock(descriptor);
    struct flock whole = wholeFile(F_WRLCK);
    if (::fcntl(descriptor, F_OFD_SETLK, &whole) == 0)
        return lock;
    if (errno == EAGAIN || errno == EACCES)
        return Failure{StoreError{"another vexil-store serves " + folder.path().string() + " already"}};
    return Failure{failure(file, "cannot be locked", errno)};
}

bool StoreLock::isHeld(const StoreFolder& folder) {
    const StoreLock reader(::open(lockFileOf(folder).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct flock found = wholeFile(F_RDLCK);
    return reader.descriptor_ >= 0 && ::fcntl(reader.descriptor_, F_OFD_GETLK, &found) == 0 && found.l_type != F_UNLCK;
}

StoreLock::StoreLock(StoreLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

StoreLock::~StoreLock() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

} // namespace vexil
