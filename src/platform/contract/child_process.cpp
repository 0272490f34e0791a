// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace vexil {

namespace {

void redirect(int descriptor, const std::string& path, int flags) {
    const int file = open(path.empty() ? "/dev/null" : path.c_str(), flags, 0600);
    if (file < 0 || dup2(file, descriptor) < 0)
        _exit(126);
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& input, const std::string& output,
                           int inherited) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str())); // execvp does not write to them
    arguments.push_back(nullptr);
    id_ = fork();
    if (id_ != 0)
        return;
    if (inherited >= 0)
        dup2(inherited, 3);
    redirect(STDIN_FILENO, input, O_RDONLY);
    redirect(STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC);
    redirect(STDERR_FILENO, "", O_WRONLY);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

ChildProcess::~ChildProcess() {
    if (id_ > 0) {
        signal(SIGKILL);
        wait();
    }
}

void ChildProcess::signal(int number) const {
    if (id_ > 0)
        kill(id_, number);
}

int ChildProcess::wait() {
    int status = 0;
    waitpid(id_, &status, 0);
    id_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace vexil
