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
    void copyConcealedAndHang(const std::string& text) override {
        pasteboard_.copy(text, {pasteboard_type::kConcealed});
        pasteboard_.freezeOwner(true);
    }
    void endHang() override { pasteboard_.freezeOwner(false); }
    bool runUntil(const std::function<bool()>& isSo) override {
        queue_.runUntilIdle();
        if (!isSo())
            queue_.advance(MemoryPasteboard::kReadDeadline);
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
