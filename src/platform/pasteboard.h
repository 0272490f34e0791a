// SPDX-License-Identifier: Apache-2.0
// The general pasteboard of the session.
#pragma once

#include "base/bytes.h"
#include "base/unique_function.h"
#include "platform/promised_bytes.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// Identifiers of what a pasteboard may hold, the same on every system.
namespace pasteboard_type {
inline constexpr const char* kString = "public.utf8-plain-text";
inline constexpr const char* kPng = "public.png";
inline constexpr const char* kTiff = "public.tiff";
inline constexpr const char* kJpeg = "public.jpeg";
// Whatever other image the pasteboard holds, in a format that the image codec reads.
inline constexpr const char* kAnyImage = "public.image";
inline constexpr const char* kConcealed = "org.nspasteboard.ConcealedType";
inline constexpr const char* kTransient = "org.nspasteboard.TransientType";
} // namespace pasteboard_type

// What one write puts on the pasteboard: all of its parts are forms of the same content.
struct PasteboardContents {
    std::optional<std::string> text; // UTF-8
    struct Data {
        std::string type;
        Bytes bytes;
    };
    std::vector<Data> data;
    // One more form, made of the first of `data` when somebody asks for it. Whoever else wants something of the
    // pasteboard waits meanwhile, but not the main queue.
    struct Promise {
        std::string type;
        std::shared_ptr<PromisedBytes> bytes;
    };
    std::optional<Promise> promise = std::nullopt;
};

// Main queue only; completions come on it. Reads are asynchronous because the content lives in another program, which
// may be slow, hung or gone: a read without progress for 2 s yields none, and no read ever blocks. Content may change
// between two reads: compare changeCount() before and after. A read that a change overtakes may yield none, and then
// changeCount() has been raised by the time it does.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    // Raised by every write, by whomever; never falls. Costs one load.
    [[nodiscard]] virtual std::int64_t changeCount() const = 0;

    // Identifiers from pasteboard_type that apply, with no duplicates; none where nobody says what there is. An owner
    // that did not answer in time may have wanted to say that its content is concealed: it is not read again, whatever
    // is asked for, before the next change. One that answers without naming any type stays readable.
    virtual void types(UniqueFunction<void(std::optional<std::vector<std::string>>)> completion) = 0;

    // The plain text, valid UTF-8.
    virtual void string(UniqueFunction<void(std::optional<std::string>)> completion) = 0;

    // Bytes of a type other than kString.
    virtual void data(const std::string& type, UniqueFunction<void(std::optional<Bytes>)> completion) = 0;

    // Replaces what is there; empty contents clear the pasteboard. The completion gets the change count of this very
    // write, or none where the pasteboard could not be taken.
    virtual void write(PasteboardContents contents, UniqueFunction<void(std::optional<std::int64_t>)> completion) = 0;
};

} // namespace vexil
