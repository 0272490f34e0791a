// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/uuid.h"

#include <optional>

namespace vexil {

// Where the keyboard's focus is: on a row, which may have gone from the list meanwhile, in the search field, or on the
// category bar.
class PanelFocus {
public:
    static PanelFocus row(const Uuid& id) { return {Place::row, id}; }
    static PanelFocus search() { return {Place::search, {}}; }
    static PanelFocus categories() { return {Place::categories, {}}; }

    [[nodiscard]] std::optional<Uuid> rowID() const {
        return place_ == Place::row ? std::optional(rowID_) : std::nullopt;
    }

    bool operator==(const PanelFocus&) const = default;

private:
    enum class Place { row, search, categories };
    PanelFocus(Place place, const Uuid& rowID) : place_(place), rowID_(rowID) {}

    Place place_;
    Uuid rowID_; // zero where there is no row
};

} // namespace vexil
