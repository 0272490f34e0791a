// SPDX-License-Identifier: Apache-2.0
// How whoever shows the panel learns that it has to draw again.
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "platform/main_queue.h"

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <vector>

namespace vexil {

// The fields of the panel's model that a view may show.
enum class PanelField {
    history,
    favorites,
    categories,
    isConnected,
    query,
    showFavorites,
    selectedCategoryID,
    focus,
    favoriteCandidate,
    editingRow,
    editingText,
    isLoadingEdit,
    isSavingEdit,
    editError,
    focusToken,
};

class PanelFields {
public:
    PanelFields() = default;
    PanelFields(std::initializer_list<PanelField> fields) {
        for (const PanelField field : fields)
            insert(field);
    }

    void insert(PanelField field) { bits_ |= bitOf(field); }
    [[nodiscard]] bool contains(PanelField field) const { return (bits_ & bitOf(field)) != 0; }
    [[nodiscard]] bool containsAnyOf(PanelFields fields) const { return (bits_ & fields.bits_) != 0; }

    bool operator==(const PanelFields&) const = default;

private:
    static std::uint32_t bitOf(PanelField field) { return 1U << static_cast<unsigned>(field); }

    std::uint32_t bits_ = 0;
};

// Dropping it ends the observation, from within the observer's own call too.
class PanelObservation {
public:
    virtual ~PanelObservation() = default;
};

// Every assignment counts, also of the value that was there. Observers are not told at each: the first assignment posts
// one turn of the main queue, in which every observer is called once, with all fields that were assigned up to then.
// So an observer always finds the model between two operations, never within one, and however much happens in a turn,
// a view draws once. What an observer assigns is told in a turn of its own. Main queue only.
class PanelChanges {
public:
    using Observer = UniqueFunction<void(const PanelFields& assigned)>;

    explicit PanelChanges(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

    // The observer is also told of what was assigned, and not told yet, before it came.
    [[nodiscard]] std::unique_ptr<PanelObservation> observe(Observer observer);

    void assigned(PanelField field);

    // How many assignments there have been.
    [[nodiscard]] std::uint64_t assignments() const { return assignments_; }

private:
    class Observation;

    void tell();

    MainQueue& mainQueue_;
    std::vector<std::weak_ptr<Observer>> observers_;
    PanelFields untold_;
    bool isTellingPosted_ = false;
    std::uint64_t assignments_ = 0;
    Lifetime lifetime_;
};

} // namespace vexil
