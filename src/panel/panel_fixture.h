// SPDX-License-Identifier: Apache-2.0
// A panel's model on memory ports, with a main application that answers what a test has it answer.
#pragma once

#include "capture/clipboard_watcher.h"
#include "link/clipboard_link_server.h"
#include "link/test_main_application.h"
#include "panel/clipboard_panel_model.h"
#include "panel/test_rows.h"
#include "platform/memory/memory_image_codec.h"
#include "platform/memory/memory_pasteboard.h"
#include "platform/memory/memory_secure_random.h"
#include "platform/memory/memory_user_defaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

class PanelFixture : public testing::Test {
protected:
    PanelFixture() {
        server.start();
        queue.runUntilIdle();
        makeModel();
    }

    void makeModel() {
        model = std::make_unique<ClipboardPanelModel>(server, watcher,
                                                      PanelServices{.mainQueue = queue,
                                                                    .pasteboard = pasteboard,
                                                                    .imageCodec = codec,
                                                                    .worker = worker,
                                                                    .defaults = defaults});
        model->onPick = [this] { ++picks; };
        queue.runUntilIdle();
    }

    // A main application says hello; it has not yet been asked for, or has not yet sent, its snapshot.
    void connect() {
        main = std::make_unique<TestMainApplication>(queue, network, *server.port());
        ASSERT_TRUE(main->hello(server.nonce()));
    }

    void connect(ClipboardStoreSnapshot snapshot) {
        connect();
        answer("store.snapshot", std::move(snapshot));
    }

    void disconnect() {
        main->connection().close();
        queue.runUntilIdle();
    }

    // The store changes, and the model is sent what it is now.
    void sendSnapshot(ClipboardStoreSnapshot snapshot) {
        server.refreshSnapshot(true);
        queue.runUntilIdle();
        answer("store.snapshot", std::move(snapshot));
    }

    // The oldest unanswered request of that name.
    [[nodiscard]] TestMainApplication::Message take(const std::string& method) {
        auto& requests = main->requests;
        const auto found = std::find_if(requests.begin(), requests.end(),
                                        [&method](const auto& request) { return request.header.m == method; });
        if (found == requests.end()) {
            ADD_FAILURE() << "nobody asked " << method;
            return {};
        }
        auto request = std::move(*found);
        requests.erase(found);
        return request;
    }
    template <class Payload> [[nodiscard]] Payload taken(const std::string& method) {
        const auto request = take(method);
        const auto* payload = std::get_if<Payload>(&request.payload);
        EXPECT_NE(payload, nullptr) << method;
        return payload != nullptr ? *payload : Payload{};
    }

    void answer(const std::string& method, ClipboardLinkPayload payload, std::optional<Bytes> attachment = {}) {
        reply(take(method), std::move(payload), std::move(attachment));
    }
    void refuse(const std::string& method, const std::string& code, const std::string& message) {
        reply(take(method), Failure{ClipboardLinkError{code, message}});
    }
    void reply(const TestMainApplication::Message& request, ClipboardLinkConnection::Reply reply,
               std::optional<Bytes> attachment = {}) {
        main->connection().respond(request, std::move(reply), std::move(attachment));
        queue.runUntilIdle();
    }
    void answerText(const std::string& text) { replyText(take("entry.payload"), text); }
    void replyText(const TestMainApplication::Message& request, const std::optional<std::string>& text) {
        const ClipboardEntryPayload payload{.kind = ClipboardKind::text, .text = text, .hasAttachment = false};
        reply(request, ClipboardLinkPayload(payload));
    }

    [[nodiscard]] std::vector<std::string> asked() const { return main->requestedMethods(); }
    [[nodiscard]] std::vector<std::string> visible() { return previewsOf(model->visibleRows()); }
    [[nodiscard]] std::optional<std::string> selected() {
        const auto* row = model->selectedRow();
        return row != nullptr ? std::optional(row->preview) : std::nullopt;
    }

    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    MemorySecureRandom random;
    MemoryImageCodec codec;
    MemoryPasteboard pasteboard{queue};
    MemorySerialQueue worker{queue};
    std::shared_ptr<MemoryDefaultsFile> defaultsFile = std::make_shared<MemoryDefaultsFile>();
    MemoryUserDefaults defaults{queue, defaultsFile};
    ClipboardLinkServer server{queue, network, random};
    ClipboardWatcher watcher{queue, pasteboard, worker, codec, server};
    std::unique_ptr<ClipboardPanelModel> model;
    std::unique_ptr<TestMainApplication> main;
    int picks = 0;
};

} // namespace vexil
