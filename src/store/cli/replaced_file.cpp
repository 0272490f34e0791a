// SPDX-License-Identifier: Apache-2.0
#include "store/cli/replaced_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace vexil {

namespace fs = std::filesystem;

Result<ReplacedFile, CommandError> ReplacedFile::create(const fs::path& file) {
    std::error_code error;
    const fs::path canonical = fs::weakly_canonical(file, error);
    const fs::path target = error || canonical.empty() ? file : canonical;
    const auto type = fs::status(target, error).type();
    if (type != fs::file_type::not_found && type != fs::file_type::regular)
        return failure(file.string() + " is no regular file; give another name, or - for standard output");
    std::string temporary = target.string() + ".XXXXXX";
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC); // readable by its owner only
    if (descriptor < 0)
        return fileFailure(file, "cannot be written");
    return ReplacedFile(target, temporary, descriptor);
}

ReplacedFile::~ReplacedFile() {
    if (!temporary_.empty())
        ::unlink(temporary_.c_str());
}

CommandResult ReplacedFile::finish() {
    if (::fsync(descriptor_.number()) != 0)
        return fileFailure(file_, "cannot be written");
    if (std::rename(temporary_.c_str(), file_.c_str()) != 0)
        return fileFailure(file_, "cannot be replaced");
    temporary_.clear();
    const fs::path folder = file_.has_parent_path() ? file_.parent_path() : ".";
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.number() >= 0)
        ::fsync(opened.number()); // where the file system has no use for it, it says so, which is no failure
    return Done{};
}

} // namespace vexil
