// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/pasteboard_session.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_pasteboard.h"

namespace vexil {

namespace {

class MemoryPasteboardSession final : public PasteboardSession {
public:
    Pasteboard& ours() override { return pasteboard_; }
    Pasteboard& theirs() override { return pasteboard_; }
    bool runUntil(const std::function<bool()>& isSo) override {
        queue_.runUntilIdle();
        return isSo();
    }

private:
    MemoryMainQueue queue_;
    MemoryPasteboard pasteboard_{queue_};
};

} // namespace

std::vector<PasteboardSessionFactory> pasteboardSessionFactories() {
    return {
        {"Memory", []() -> std::unique_ptr<PasteboardSession> { return std::make_unique<MemoryPasteboardSession>(); }}};
}

} // namespace vexil
