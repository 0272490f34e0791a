// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/test_bus.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <system_error>

extern char** environ;

namespace vexil {

namespace fs = std::filesystem;

TestBus::TestBus() {
    std::string path = (fs::temp_directory_path() / "vexil-bus-XXXXXX").string();
    folder_ = ::mkdtemp(path.data());
    address_ = "unix:path=" + (folder_ / "bus").string();
    std::ofstream(folder_ / "bus.conf") << "<busconfig><type>session</type><listen>" << address_ << "</listen>"
                                        << "<policy context='default'><allow send_destination='*' eavesdrop='true'/>"
                                        << "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>";
}

TestBus::~TestBus() {
    kill();
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

bool TestBus::start() {
    std::array<int, 2> ready{};
    if (::pipe(ready.data()) != 0)
        return false;
    const std::string configuration = "--config-file=" + (folder_ / "bus.conf").string();
    const std::string print = "--print-address=" + std::to_string(ready[1]);
    std::array<char*, 6> arguments{const_cast<char*>("dbus-daemon"), const_cast<char*>(configuration.c_str()),
                                   const_cast<char*>("--nofork"),    const_cast<char*>("--nosyslog"),
                                   const_cast<char*>(print.c_str()), nullptr};
    pid_t process = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclose(&actions, ready[0]);
    // What it has to say about limits that a container does not grant.
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const bool isSpawned = ::posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    ::close(ready[1]);
    // It prints its address when it listens; the pipe ends where it could not.
    char first = 0;
    const bool isListening = isSpawned && ::read(ready[0], &first, 1) == 1;
    ::close(ready[0]);
    if (isSpawned)
        process_ = process;
    return isListening;
}

void TestBus::kill() {
    if (!process_)
        return;
    ::kill(*process_, SIGKILL);
    ::waitpid(*process_, nullptr, 0);
    process_.reset();
}

void TestBus::freeze(bool frozen) const {
    if (process_)
        ::kill(*process_, frozen ? SIGSTOP : SIGCONT);
}

} // namespace vexil
