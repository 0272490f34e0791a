// SPDX-License-Identifier: Apache-2.0
#include "store/cli/hosts_apply.h"

#include "store/cli/counted.h"
#include "store/cli/store_access.h"
#include "store/database/hosts_requests.h"

#include <cstdint>
#include <string>

namespace vexil {

namespace {

using namespace std::chrono_literals;
using Kind = HostsOutcome::Kind;
using Outcome = Result<HostsOutcome, StoreError>;

// Looking whether another process has written anything costs no access to the disk.
constexpr std::chrono::milliseconds kPause = 100ms;
// The serving process ends the attempt when patience does; one that does not even do that is not waited for.
constexpr std::chrono::milliseconds kGrace = 5s;

// What the companion said goes into a sentence that ends without a full stop.
std::string wordsOf(const HostsOutcome& outcome) {
    std::string words = outcome.state && outcome.state->lastError ? *outcome.state->lastError : "it did not say why";
    while (words.ends_with('.'))
        words.pop_back();
    return words;
}

std::string successOf(const HostsOutcome& outcome, bool removeAll) {
    if (removeAll || !outcome.state)
        return removeAll ? "removed everything that was applied\n" : "applied\n";
    return "applied " + counted(outcome.state->appliedHostnameCount, "host name") + " of " +
           counted(outcome.state->appliedProfileCount, "profile") + "\n";
}

CommandResult conclude(const CommandContext& context, const HostsOutcome& outcome, bool removeAll,
                       std::chrono::seconds patience) {
    const std::string waited = counted(patience.count(), "second");
    switch (outcome.kind) {
    case Kind::done:
        return commandResult(context.output.write(successOf(outcome, removeAll)));
    case Kind::failed:
        return failure("Vexil Shortcut could not do it: " + wordsOf(outcome));
    case Kind::notLinked:
        return failure("no Vexil Shortcut is linked to the store; start it and try again");
    case Kind::linkLost:
        return failure("the link to Vexil Shortcut was lost before it was done; try again when vexil-store status "
                       "shows it linked");
    case Kind::nothingHeard:
        return failure("nothing was heard from Vexil Shortcut for " + waited + "; see vexil-store status");
    case Kind::notFinished:
        return failure("Vexil Shortcut is not done after " + waited +
                       "; it may be asking for a password, and vexil-store status will show what came of it");
    case Kind::abandoned:
        break;
    }
    return failure("vexil-store serve has ended before it was done; start it and try again");
}

Outcome awaitOutcome(const CommandContext& context, StoreDatabase& database, std::int64_t request,
                     std::chrono::milliseconds limit) {
    std::chrono::milliseconds waited = 0ms;
    for (;;) {
        // Asked for first, so that nothing that comes between the two is missed.
        const auto version = database.dataVersion();
        if (!version)
            return Failure{version.error()};
        const auto outcome = database.hostsRequests().outcome(request);
        if (!outcome)
            return Failure{outcome.error()};
        if (*outcome)
            return **outcome;
        for (auto current = version; current && *current == *version; current = database.dataVersion()) {
            if (!StoreLock::isHeld(context.folder))
                return HostsOutcome{Kind::abandoned, std::nullopt};
            if (waited >= limit)
                return HostsOutcome{Kind::nothingHeard, std::nullopt};
            context.pause(kPause);
            waited += kPause;
        }
    }
}

} // namespace

CommandResult applyHosts(const CommandContext& context, bool removeAll, std::chrono::seconds patience) {
    if (!StoreLock::isHeld(context.folder))
        return failure("no vexil-store serve is running; start it and try again");
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    const auto request = database->hostsRequests().add(removeAll, patience);
    if (!request)
        return Failure{CommandError(request.error())};
    const Outcome outcome = awaitOutcome(context, *database, *request, patience + kGrace);
    const auto withdrawn = database->hostsRequests().withdraw(*request);
    if (!outcome)
        return Failure{CommandError(outcome.error())};
    auto concluded = conclude(context, *outcome, removeAll, patience);
    return concluded && !withdrawn ? Failure{CommandError(withdrawn.error())} : concluded;
}

} // namespace vexil
