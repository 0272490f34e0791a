// SPDX-License-Identifier: Apache-2.0
#include "store/cli/text_editor.h"

#include "base/text.h"
#include "store/cli/file_access.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

namespace vexil {

namespace {

constexpr std::size_t kMaxEditedBytes = 64U << 20;

// A folder that nobody else can look into, gone with its owner unless it is kept.
class PrivateFolder {
public:
    static Result<PrivateFolder, CommandError> make(const std::filesystem::path& parent) {
        std::string pattern = (parent / "vexil-store-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            return fileFailure(parent, "takes no temporary folder");
        return PrivateFolder(pattern);
    }
    ~PrivateFolder() {
        std::error_code ignored; // it is the system's temporary folder, which is cleaned
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    PrivateFolder(PrivateFolder&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    PrivateFolder& operator=(PrivateFolder&&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    void keep() { path_.clear(); }

private:
    explicit PrivateFolder(std::filesystem::path path) : path_(std::move(path)) {}

    std::filesystem::path path_;
};

CommandResult writeNew(const std::filesystem::path& file, std::string_view text) {
    const Descriptor descriptor(
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (descriptor.number() < 0)
        return fileFailure(file, "cannot be written");
    return commandResult(OutputStream(descriptor.number(), std::nullopt).write(text));
}

// While the editor runs, the keys that interrupt are meant for it.
class InterruptsForTheChild {
public:
    InterruptsForTheChild() {
        for (std::size_t i = 0; i < kSignals.size(); ++i)
            before_.at(i) = std::signal(kSignals.at(i), SIG_IGN);
    }
    ~InterruptsForTheChild() {
        for (std::size_t i = 0; i < kSignals.size(); ++i)
            std::signal(kSignals.at(i), before_.at(i));
    }
    InterruptsForTheChild(const InterruptsForTheChild&) = delete;
    InterruptsForTheChild& operator=(const InterruptsForTheChild&) = delete;

    static constexpr std::array<int, 2> kSignals = {SIGINT, SIGQUIT};

private:
    using Handler = void (*)(int);
    std::array<Handler, kSignals.size()> before_{};
};

// The status as of waitpid, or none where it could not be run at all.
std::optional<int> runEditor(const std::string& command, const std::filesystem::path& file) {
    const InterruptsForTheChild interrupts;
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int number : InterruptsForTheChild::kSignals)
        sigaddset(&defaults, number);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    std::string shell = "sh";
    std::string option = "-c";
    std::string script = command + " \"$@\"";
    std::string path = file.string();
    const std::array<char*, 6> arguments = {shell.data(), option.data(), script.data(),
                                            shell.data(), path.data(),   nullptr};
    pid_t child = 0;
    const int error = ::posix_spawn(&child, "/bin/sh", nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        return std::nullopt;
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return std::nullopt;
    }
    return status;
}

CommandResult checkEnd(const std::string& editor, std::optional<int> status) {
    if (!status)
        return failure("the editor could not be started, nothing is changed");
    if (WIFEXITED(*status) && WEXITSTATUS(*status) == 0)
        return Done{};
    const bool isSignal = WIFSIGNALED(*status);
    return failure(
        "the editor (" + editor + ") ended with " +
        (isSignal ? "signal " + std::to_string(WTERMSIG(*status)) : "status " + std::to_string(WEXITSTATUS(*status))) +
        ", nothing is changed; set EDITOR to another one if this one does not work");
}

CommandResult applyEdited(std::string_view before, std::string edited,
                          UniqueFunction<CommandResult(const std::string&)>& apply) {
    if (!before.ends_with('\n') && edited.ends_with('\n'))
        edited.pop_back();
    if (edited == before)
        return Done{};
    if (!text::isValidUtf8(edited))
        return failure("the text is not UTF-8");
    return apply(edited);
}

} // namespace

CommandResult editText(const CommandContext& context, std::string_view text, const std::string& fileName,
                       UniqueFunction<CommandResult(const std::string& edited)> apply) {
    auto folder = PrivateFolder::make(context.temporaryFolder);
    if (!folder)
        return Failure{folder.error()};
    const std::filesystem::path file = folder->path() / fileName;
    if (auto written = writeNew(file, text); !written)
        return written;
    if (auto ended = checkEnd(context.editor, runEditor(context.editor, file)); !ended)
        return ended;
    const auto edited = readFile(file, kMaxEditedBytes);
    if (!edited)
        return Failure{edited.error()};
    auto applied = applyEdited(text, std::string(textOf(*edited)), apply);
    if (applied)
        return applied;
    folder->keep();
    CommandError error = applied.error();
    error.sentence += "; what you wrote is kept in " + file.string();
    return Failure{error};
}

} // namespace vexil
