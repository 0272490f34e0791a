// SPDX-License-Identifier: Apache-2.0
// A snapshot as a peer may send it. What is read must be written and read again as the same; and what counts as JSON at
// all is what simdjson's own parser takes.
#include "base/json.h"
#include "link/clipboard_records.h"

#include "fuzz/fuzz_target.h"
#include <simdjson.h>

namespace vexil {
namespace {

using fuzz::require;

void checkRoundTrip(ByteView text) {
    const auto snapshot = json::read<ClipboardStoreSnapshot>(text);
    if (!snapshot)
        return;
    Bytes written;
    json::append(written, *snapshot);
    const auto again = json::read<ClipboardStoreSnapshot>(written);
    require(again.hasValue() && *again == *snapshot, "a snapshot comes back as it was written");
    Bytes rewritten;
    json::append(rewritten, *again);
    require(rewritten == written, "one snapshot has one spelling");
}

void checkGrammar(ByteView text) {
    json::Reader in(text);
    const bool isJson = in.skip() && in.finish();
    simdjson::dom::parser parser;
    const auto status = parser.parse(text.data(), text.size(), true).error();
    if (isJson) // the tree's parser refuses numbers that do not fit, which skipping leaves alone
        require(status == simdjson::SUCCESS || status == simdjson::NUMBER_ERROR, "what is skipped is JSON");
    else
        require(status != simdjson::SUCCESS || in.error().reason == "nested too deeply", "what is JSON is skipped");
}

} // namespace
} // namespace vexil

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vexil::checkRoundTrip({data, size});
    vexil::checkGrammar({data, size});
    return 0;
}
