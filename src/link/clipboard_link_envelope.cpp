// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_envelope.h"

#include "base/json.h"

#include <utility>

namespace vexil {

namespace {

struct HeaderKeys {
    bool v = false;
    bool id = false;
    bool t = false;
    bool m = false;
};

// Reads an envelope in one pass, which may meet the payload before it knows what to read it as.
class EnvelopeReader {
public:
    EnvelopeReader(ByteView json, const PayloadFilter& wanted) : in_(json), wanted_(wanted) {}

    std::optional<ClipboardLinkEnvelope> read() {
        if (!in_.readObject([this](std::string_view key) { return readMember(key); }) || !in_.finish())
            return std::nullopt;
        if (!seen_.v || !seen_.id || !seen_.t || !seen_.m)
            return std::nullopt;
        if (payloadAt_ && !readAs_)
            readLatePayload();
        return std::move(envelope_);
    }

private:
    bool readMember(std::string_view key) {
        ClipboardLinkHeader& header = envelope_.header;
        if (key == "v")
            return note(seen_.v) && readValue(in_, header.v);
        if (key == "id")
            return noteType(seen_.id) && readValue(in_, header.id);
        if (key == "t")
            return noteType(seen_.t) && readValue(in_, header.t);
        if (key == "m")
            return noteType(seen_.m) && readValue(in_, header.m);
        if (key == "e")
            return readValue(in_, header.e);
        if (key == "p")
            return readPayloadInPlace();
        return in_.skip();
    }

    static bool note(bool& seen) { return seen = true; }

    // What was read as the payload of another message has to be read again.
    bool noteType(bool& seen) {
        readAs_ = false;
        return note(seen);
    }

    bool readPayloadInPlace() {
        payloadAt_ = in_.mark();
        envelope_.payload = std::monostate{};
        readAs_ = seen_.id && seen_.t && seen_.m;
        if (!readAs_)
            return in_.skip();
        if (!readPayloadFromMark()) {
            in_.rewind(*payloadAt_);
            return in_.skip(); // no payload, but an envelope, if it is JSON at all
        }
        return true;
    }

    void readLatePayload() {
        in_.rewind(*payloadAt_);
        // The value is known to be JSON; what can fail is only that it is not the record that is called for.
        (void)readPayloadFromMark();
    }

    bool readPayloadFromMark() {
        const auto method = methodNamed(envelope_.header.m);
        const auto direction = envelope_.header.t == ClipboardLinkEnvelopeKind::response
                                   ? ClipboardLinkDirection::reply
                                   : ClipboardLinkDirection::forward;
        envelope_.payload = std::monostate{};
        if (!method || (wanted_ && !wanted_(envelope_.header)))
            return in_.skip();
        ClipboardLinkPayload payload = blankPayload(*method, direction);
        if (!readPayload(in_, payload))
            return false;
        envelope_.payload = std::move(payload);
        return true;
    }

    json::Reader in_;
    const PayloadFilter& wanted_;
    ClipboardLinkEnvelope envelope_;
    HeaderKeys seen_;
    std::optional<json::Reader::Mark> payloadAt_;
    bool readAs_ = false; // the payload was read as what the header, as last seen, calls for
};

} // namespace

std::optional<ClipboardLinkEnvelope> decodeEnvelope(ByteView json, const PayloadFilter& wanted) {
    return EnvelopeReader(json, wanted).read();
}

void appendEnvelope(Bytes& out, const ClipboardLinkHeader& header, const ClipboardLinkPayload& payload) {
    constexpr std::size_t kPunctuation = 128;
    const std::size_t errorSize = header.e ? json::sizeHint(*header.e) : 0;
    json::Writer writer(out, kPunctuation + json::sizeHint(header.id) + json::sizeHint(header.m) + errorSize +
                                 sizeHintOf(payload));
    writer.punctuation('{');
    bool isFirst = true;
    writeMember(writer, "v", header.v, isFirst);
    writeMember(writer, "id", header.id, isFirst);
    writeMember(writer, "t", header.t, isFirst);
    writeMember(writer, "m", header.m, isFirst);
    writeMember(writer, "e", header.e, isFirst);
    if (!std::holds_alternative<std::monostate>(payload)) {
        writer.key("p", isFirst);
        writePayload(writer, payload);
    }
    writer.punctuation('}');
}

} // namespace vexil
