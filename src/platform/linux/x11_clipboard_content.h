// SPDX-License-Identifier: Apache-2.0
// What another program has on the clipboard, by pasteboard type.
#pragma once

#include "base/lifetime.h"
#include "platform/linux/x11_selection_reader.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// On the connection's thread. Asks the owner once per change for the list of its targets, and an owner that was silent
// once not again until the next change. A read that a change overtakes yields none.
class X11ClipboardContent {
public:
    using OnTypes = UniqueFunction<void(std::optional<std::vector<std::string>>)>;
    using OnString = UniqueFunction<void(std::optional<std::string>)>;
    using OnData = UniqueFunction<void(std::optional<Bytes>)>;

    static constexpr std::size_t kMaxDataBytes = std::size_t{256} * 1024 * 1024; // of an image; text has far less

    X11ClipboardContent(X11SelectionReader& reader, const X11Atoms& atoms, bool hasOwner)
        : reader_(reader), atoms_(atoms), hasOwner_(hasOwner) {}

    void types(OnTypes completion);
    void string(OnString completion);
    void data(const std::string& type, OnData completion);

    void ownerChanged(bool hasOwner);

private:
    // What is known of the targets that the owner has.
    enum class Knowledge { nothing, listed, unlisted, silent };
    struct Search {
        std::vector<xcb_atom_t> targets;       // best first
        std::vector<xcb_atom_t> acceptedTypes; // of the property that comes back, beside the target itself
        std::size_t maxBytes;
        UniqueFunction<void(std::optional<X11Property>)> completion;
        std::size_t next = 0;
    };

    void withTargets(UniqueFunction<void(bool isOvertaken)> then);
    void onTargets(Result<X11Property, X11ReadFailure> answer);
    [[nodiscard]] bool isOffered(xcb_atom_t target) const;
    [[nodiscard]] std::vector<std::string> offeredTypes() const;
    void search(Search search);
    void searchOn(const std::shared_ptr<Search>& search);

    X11SelectionReader& reader_;
    const X11Atoms& atoms_;
    bool hasOwner_;
    std::uint64_t change_ = 0;
    Knowledge knowledge_ = Knowledge::nothing;
    std::vector<xcb_atom_t> targets_;
    Lifetime lifetime_;
};

} // namespace vexil
