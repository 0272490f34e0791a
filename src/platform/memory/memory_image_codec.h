// SPDX-License-Identifier: Apache-2.0
// An image codec that answers what a test told it to, and records what it was asked. It knows no format, so that the
// contract suite does not run on it: of the port's promises it keeps those on threads and on failure.
#pragma once

#include "platform/image_codec.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

// All methods from any thread.
class MemoryImageCodec final : public ImageCodec {
public:
    struct Call {
        Bytes image;
        double quality = 0;
    };

    [[nodiscard]] std::optional<Bytes> toJpeg(ByteView image, double quality) override {
        const std::lock_guard lock(mutex_);
        calls_.push_back({copyOf(image), quality});
        return answer_;
    }

    [[nodiscard]] std::optional<Bytes> toPng(ByteView image) override {
        const std::lock_guard lock(mutex_);
        pngCalls_.push_back(copyOf(image));
        return pngAnswer_;
    }

    [[nodiscard]] std::optional<std::string> typeOf(ByteView) override {
        const std::lock_guard lock(mutex_);
        return type_;
    }

    // What toPng and typeOf answer from now on. None at first.
    void answerPngWith(std::optional<Bytes> answer) {
        const std::lock_guard lock(mutex_);
        pngAnswer_ = std::move(answer);
    }
    void answerTypeWith(std::optional<std::string> type) {
        const std::lock_guard lock(mutex_);
        type_ = std::move(type);
    }
    [[nodiscard]] std::vector<Bytes> pngCalls() const {
        const std::lock_guard lock(mutex_);
        return pngCalls_;
    }

    // What toJpeg answers from now on: bytes, or none as for an image that cannot be read. None at first.
    void answerWith(std::optional<Bytes> answer) {
        const std::lock_guard lock(mutex_);
        answer_ = std::move(answer);
    }

    [[nodiscard]] std::vector<Call> calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<Bytes> answer_;
    std::vector<Call> calls_;
    std::optional<Bytes> pngAnswer_;
    std::optional<std::string> type_;
    std::vector<Bytes> pngCalls_;
};

} // namespace vexil
