// SPDX-License-Identifier: Apache-2.0
// A session with two programs that use its pasteboard, on any implementation.
#pragma once

#include "platform/pasteboard.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

class PasteboardSession {
public:
    virtual ~PasteboardSession() = default;

    [[nodiscard]] virtual Pasteboard& ours() = 0;
    // What another program sees and does.
    [[nodiscard]] virtual Pasteboard& theirs() = 0;
    // A program that hangs has copied a text and says that it is concealed, as soon as it is back.
    virtual void copyConcealedAndHang(const std::string& text) = 0;
    virtual void endHang() = 0;
    // Runs the main queue until `isSo` holds; false where it does not come to that.
    virtual bool runUntil(const std::function<bool()>& isSo) = 0;

    // The asynchronous calls, waited for. A call whose completion never comes fails the test.
    std::optional<std::vector<std::string>> types(Pasteboard& pasteboard) {
        return answerOf<std::vector<std::string>>(
            [&pasteboard](auto completion) { pasteboard.types(std::move(completion)); });
    }
    std::optional<std::string> string(Pasteboard& pasteboard) {
        return answerOf<std::string>([&pasteboard](auto completion) { pasteboard.string(std::move(completion)); });
    }
    std::optional<Bytes> data(Pasteboard& pasteboard, const std::string& type) {
        return answerOf<Bytes>([&pasteboard, &type](auto completion) { pasteboard.data(type, std::move(completion)); });
    }
    std::optional<std::int64_t> write(Pasteboard& pasteboard, PasteboardContents contents) {
        return answerOf<std::int64_t>([&pasteboard, &contents](auto completion) {
            pasteboard.write(std::move(contents), std::move(completion));
        });
    }

private:
    template <class T, class Ask> std::optional<T> answerOf(Ask ask) {
        struct State {
            bool isAnswered = false;
            std::optional<T> answer;
        };
        const auto state = std::make_shared<State>();
        ask([state](std::optional<T> answer) {
            state->answer = std::move(answer);
            state->isAnswered = true;
        });
        EXPECT_TRUE(runUntil([state] { return state->isAnswered; })) << "a call is never answered";
        return std::move(state->answer);
    }
};

struct PasteboardSessionFactory {
    const char* name;
    std::unique_ptr<PasteboardSession> (*make)();
    std::unique_ptr<PasteboardSession> operator()() const { return make(); }
    friend void PrintTo(const PasteboardSessionFactory& factory, std::ostream* out) { *out << factory.name; }
};

// What the suite runs on. Defined by the program that it is linked into.
std::vector<PasteboardSessionFactory> pasteboardSessionFactories();

} // namespace vexil
