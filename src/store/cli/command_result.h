// SPDX-License-Identifier: Apache-2.0
// How a command of vexil-store ends.
#pragma once

#include "base/result.h"
#include "store/database/store_error.h"

#include <string>
#include <utility>

namespace vexil {

// Why a command did not do what it was asked: a sentence without a closing full stop that says what to do, where there
// is something to be done.
struct CommandError {
    enum class Kind {
        failed, // exit status 1
        usage,  // 2: the command line asks for what makes no sense
    };

    CommandError(StoreError error) : sentence(std::move(error.sentence)) {}
    explicit CommandError(std::string words, Kind what = Kind::failed) : kind(what), sentence(std::move(words)) {}

    Kind kind = Kind::failed;
    std::string sentence;

    bool operator==(const CommandError&) const = default;
};

using CommandResult = Result<Done, CommandError>;

inline CommandResult commandResult(Result<Done, StoreError> result) {
    if (!result)
        return Failure{std::move(result).error()};
    return Done{};
}

inline Failure<CommandError> failure(std::string sentence) {
    return {CommandError(std::move(sentence))};
}

inline Failure<CommandError> usageFailure(std::string sentence) {
    return {CommandError(std::move(sentence), CommandError::Kind::usage)};
}

} // namespace vexil
