// SPDX-License-Identifier: Apache-2.0
#include "store/store_hosts.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace vexil {

using namespace std::chrono_literals;

StoreHosts::StoreHosts(MainQueue& mainQueue, const WallClock& clock, StoreDatabase& database)
    : mainQueue_(mainQueue), clock_(clock), database_(database) {}

void StoreHosts::start() {
    note();
    check(database_.hostsRequests().abandonAll());
    const auto revision = database_.hostsProfiles().revision();
    if (!revision)
        return fail(revision.error());
    knownRevision_ = *revision;
}

void StoreHosts::stop() {
    unlinked();
    note();
}

void StoreHosts::linked(std::optional<bool> isHotKeyActive) {
    status_.linkedSince = clock_.now();
    status_.isHotKeyActive = isHotKeyActive;
    isCompanionApplying_ = false;
    noteLater();
    settle(); // it asks for the profiles without being told
}

void StoreHosts::unlinked() {
    status_.linkedSince.reset();
    status_.isHotKeyActive.reset();
    noteLater();
    isSettling_ = false;
    isChangeOwed_ = false;
    if (attempt_)
        end(HostsOutcome::Kind::linkLost);
    serveRequests();
}

ClipboardLinkConnection::Reply StoreHosts::snapshot() {
    auto snapshot = database_.hostsProfiles().snapshot();
    if (!snapshot) {
        fail(snapshot.error());
        return Failure{ClipboardLinkError{"failed", snapshot.error().sentence}};
    }
    if (attempt_)
        attempt_->profilesGiven();
    return ClipboardLinkPayload(std::move(snapshot).value());
}

void StoreHosts::handleEvent(const Message& event) {
    if (const auto* shortcut = std::get_if<ClipboardShortcutState>(&event.payload)) {
        status_.isHotKeyActive = shortcut->hotkeyActive;
        noteLater();
    } else if (const auto* state = std::get_if<HostsCompanionState>(&event.payload)) {
        heard(*state);
    }
}

void StoreHosts::heard(const HostsCompanionState& state) {
    status_.hostsState = state;
    status_.hostsStateAt = clock_.now();
    isCompanionApplying_ = state.isApplying;
    noteLater();
    isSettling_ = false;
    if (attempt_) {
        if (const auto outcome = attempt_->heard(state))
            end(*outcome);
    }
    serveRequests();
}

void StoreHosts::databaseChanged() {
    const auto revision = database_.hostsProfiles().revision();
    if (!revision)
        fail(revision.error());
    else if (std::exchange(knownRevision_, *revision) != *revision)
        announceChange();
    takeRequests();
    serveRequests();
}

// While it applies, the companion is left alone: it asks for the profiles before, and what it says of itself is to be
// about that.
void StoreHosts::announceChange() {
    isChangeOwed_ = attempt_.has_value();
    if (isChangeOwed_ || !status_.linkedSince)
        return;
    auto snapshot = database_.hostsProfiles().snapshot();
    if (!snapshot)
        fail(snapshot.error());
    if (onSend)
        onSend(ClipboardLinkMethod::hostsChanged,
               snapshot ? ClipboardLinkPayload(std::move(snapshot).value()) : ClipboardLinkPayload());
    settle();
}

void StoreHosts::settle() {
    isSettling_ = true;
    settlingLimit_ = mainQueue_.after(kSettlingTime, lifetime_.guard([this] {
        isSettling_ = false;
        serveRequests();
    }));
}

void StoreHosts::takeRequests() {
    auto pending = database_.hostsRequests().pending();
    if (!pending)
        return fail(pending.error());
    waiting_.assign(pending->begin(), pending->end());
    if (!attempt_)
        return;
    const auto isAttempt = [&](const HostsRequest& request) { return request.number == attempt_->request().number; };
    if (std::erase_if(waiting_, isAttempt) == 0)
        end(HostsOutcome::Kind::notFinished); // whoever asked has gone
}

void StoreHosts::serveRequests() {
    while (!waiting_.empty() && !attempt_ && !isSettling_) {
        const HostsRequest request = waiting_.front();
        waiting_.pop_front();
        if (status_.linkedSince)
            begin(request);
        else
            tell(request, HostsOutcome::Kind::notLinked);
    }
}

void StoreHosts::begin(const HostsRequest& request) {
    attempt_.emplace(request, isCompanionApplying_);
    const Duration patience = std::clamp<std::chrono::milliseconds>(request.patience, 0ms, kMaxPatience);
    patienceLimit_ = mainQueue_.after(patience, lifetime_.guard([this] {
        end(attempt_->atEndOfPatience());
        serveRequests();
    }));
    if (onNotice)
        onNotice(request.removeAll ? "asked the companion to remove all hosts mappings"
                                   : "asked the companion to apply the hosts profiles");
    if (onSend)
        onSend(ClipboardLinkMethod::hostsApply, HostsApplyCommand{request.removeAll});
}

void StoreHosts::end(HostsOutcome::Kind kind) {
    tell(attempt_->request(), kind);
    attempt_.reset();
    patienceLimit_ = {};
    if (isChangeOwed_)
        announceChange();
}

void StoreHosts::tell(const HostsRequest& request, HostsOutcome::Kind kind) {
    check(database_.hostsRequests().finish(request.number, {kind, status_.hostsState}));
}

// A companion may report its state as often as it likes; it is written once a turn.
void StoreHosts::noteLater() {
    if (std::exchange(isNoteDue_, true))
        return;
    mainQueue_.post(lifetime_.guard([this] { note(); }));
}

void StoreHosts::note() {
    isNoteDue_ = false;
    check(database_.companionRecord().write(status_));
}

void StoreHosts::check(const Result<Done, StoreError>& result) {
    if (!result)
        fail(result.error());
}

void StoreHosts::fail(const StoreError& error) {
    if (onFailure)
        onFailure("the state of the hosts is not kept: " + error.sentence);
}

} // namespace vexil
