// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_pasteboard.h"

#include <utility>

namespace vexil {

namespace {

// Carries the answer to one call from the clipboard's thread to the main queue. One that is dropped unused, for
// instance because the connection broke, answers none.
template <class T> class Answer {
public:
    Answer(MainQueue& mainQueue, UniqueFunction<void(std::optional<T>)> deliver)
        : mainQueue_(mainQueue), deliver_(std::move(deliver)) {}
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;
    Answer(Answer&&) noexcept = default;
    Answer& operator=(Answer&&) = delete;
    ~Answer() { (*this)(std::nullopt); }

    void operator()(std::optional<T> answer) {
        if (deliver_) {
            mainQueue_.post([deliver = std::exchange(deliver_, nullptr), answer = std::move(answer)]() mutable {
                deliver(std::move(answer));
            });
        }
    }

private:
    MainQueue& mainQueue_;
    UniqueFunction<void(std::optional<T>)> deliver_;
};

} // namespace

X11Pasteboard::X11Pasteboard(MainQueue& mainQueue, const std::string& display, OnConnection onConnection)
    : mainQueue_(mainQueue), onConnection_(std::move(onConnection)) {
    if (display.empty())
        return;
    X11ClipboardThread::Events events;
    events.onForeignChange = [this](std::int64_t count) { raiseChangeCount(count); };
    // Made here, since the thread must not touch the Lifetime.
    auto report = lifetime_.guard([this](bool isConnected) {
        if (onConnection_)
            onConnection_(isConnected);
    });
    events.onConnection = [&mainQueue, report](bool isConnected) {
        mainQueue.post([report, isConnected]() mutable { report(isConnected); });
    };
    thread_ = std::make_unique<X11ClipboardThread>(display, std::move(events));
}

X11Pasteboard::~X11Pasteboard() = default;

void X11Pasteboard::types(UniqueFunction<void(std::optional<std::vector<std::string>>)> completion) {
    ask<std::vector<std::string>>(std::move(completion),
                                  [](X11Clipboard& clipboard, auto answer) { clipboard.types(std::move(answer)); });
}

void X11Pasteboard::string(UniqueFunction<void(std::optional<std::string>)> completion) {
    ask<std::string>(std::move(completion),
                     [](X11Clipboard& clipboard, auto answer) { clipboard.string(std::move(answer)); });
}

void X11Pasteboard::data(const std::string& type, UniqueFunction<void(std::optional<Bytes>)> completion) {
    ask<Bytes>(std::move(completion),
               [type](X11Clipboard& clipboard, auto answer) { clipboard.data(type, std::move(answer)); });
}

void X11Pasteboard::write(PasteboardContents contents, UniqueFunction<void(std::optional<std::int64_t>)> completion) {
    ask<std::int64_t>(
        [this, completion = std::move(completion)](std::optional<std::int64_t> count) mutable {
            if (count)
                raiseChangeCount(*count);
            completion(count);
        },
        [contents = std::move(contents)](X11Clipboard& clipboard, auto answer) mutable {
            clipboard.write(std::move(contents), std::move(answer));
        });
}

// Completions stay here, so that whatever they hold is destroyed on the main queue; the thread has but a way to them.
template <class T, class Question>
void X11Pasteboard::ask(UniqueFunction<void(std::optional<T>)> completion, Question question) {
    const auto kept = std::make_shared<UniqueFunction<void(std::optional<T>)>>(std::move(completion));
    outstanding_.insert(kept);
    auto deliver = lifetime_.guard([this, known = std::weak_ptr(kept)](std::optional<T> result) {
        if (const auto found = known.lock()) {
            outstanding_.erase(found);
            (*found)(std::move(result));
        }
    });
    Answer<T> answer(mainQueue_, std::move(deliver));
    if (!thread_)
        return; // which answers none
    thread_->post([answer = std::move(answer), question = std::move(question)](X11Clipboard* clipboard) mutable {
        if (clipboard != nullptr)
            question(*clipboard, std::move(answer));
    });
}

void X11Pasteboard::raiseChangeCount(std::int64_t count) {
    std::int64_t seen = changeCount_.load(std::memory_order_relaxed);
    while (seen < count && !changeCount_.compare_exchange_weak(seen, count, std::memory_order_acq_rel)) {
    }
}

} // namespace vexil
