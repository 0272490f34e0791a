// SPDX-License-Identifier: Apache-2.0
// Editing, seen through the model: each state entered and left in each way that there is.
#include "panel/panel_fixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;

constexpr const char* kUnavailable = "Store unavailable";

class ClipboardEditSessionTest : public PanelFixture {
protected:
    enum class State { closed, loading, ready, loadFailed, saving };

    // Read off the fields as a view would, so that no field can say anything else than the state does.
    State state() {
        const bool isTextOrImage = model->editingRow() && (model->editingRow()->kind == ClipboardKind::image ||
                                                           model->originalEditingText().has_value());
        EXPECT_FALSE(model->isLoadingEdit() && model->isSavingEdit());
        if (!model->editingRow()) {
            EXPECT_FALSE(model->isLoadingEdit() || model->isSavingEdit() || model->canSaveEdit());
            EXPECT_FALSE(model->editError() || model->originalEditingText());
            return State::closed;
        }
        EXPECT_EQ(model->canSaveEdit(), isTextOrImage && !model->isLoadingEdit() && !model->isSavingEdit());
        if (model->isLoadingEdit() || model->isSavingEdit()) {
            EXPECT_EQ(model->editError(), std::nullopt);
            return model->isLoadingEdit() ? State::loading : State::saving;
        }
        EXPECT_TRUE(isTextOrImage || model->editError());
        return isTextOrImage ? State::ready : State::loadFailed;
    }

    static ClipboardStoreSnapshot store() {
        return {.revision = 1,
                .history = {historyRow("text"), imageRow("image"), historyRow("other")},
                .favorites = {favoriteRow("fav")},
                .categories = {categoryOf("work")}};
    }

    // Each leaves the model in the state of its name, editing the row "text".
    void toLoading() {
        connect(store());
        model->beginEdit(historyRow("text"));
        queue.runUntilIdle();
    }
    void toReady() {
        toLoading();
        answerText("the text");
    }
    void toLoadFailed() {
        toLoading();
        refuse("entry.payload", "not_found", "No such entry");
    }
    void toSaving() {
        toReady();
        model->setEditingText("another text");
        model->saveEdit("", std::nullopt);
        queue.runUntilIdle();
    }
};

// Closed.

TEST_F(ClipboardEditSessionTest, WhileNothingIsEditedNothingCanBeLoadedOrSaved) {
    connect(store());
    model->loadEditText();
    model->saveEdit("alias", std::nullopt);
    queue.runUntilIdle();
    EXPECT_EQ(state(), State::closed);
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ClipboardEditSessionTest, BeginningLoadsTheText) {
    toLoading();
    EXPECT_EQ(state(), State::loading);
    EXPECT_EQ(model->editingRow(), historyRow("text"));
    EXPECT_EQ(taken<ClipboardEntryRef>("entry.payload"),
              (ClipboardEntryRef{.id = idOf("text"), .scope = ClipboardScope::history}));
}

TEST_F(ClipboardEditSessionTest, AnImageIsReadyAtOnceAndHasNoTextToLoad) {
    connect(store());
    model->beginEdit(imageRow("image"));
    EXPECT_EQ(state(), State::ready);
    model->loadEditText();
    queue.runUntilIdle();
    EXPECT_EQ(state(), State::ready);
    EXPECT_THAT(asked(), IsEmpty());
}

// Loading.

TEST_F(ClipboardEditSessionTest, ALoadedTextCanBeEdited) {
    toLoading();
    answerText("the text");
    EXPECT_EQ(state(), State::ready);
    EXPECT_EQ(model->editingText(), "the text");
    EXPECT_THAT(model->originalEditingText(), Optional(std::string("the text")));
    EXPECT_EQ(model->editError(), std::nullopt);
}

TEST_F(ClipboardEditSessionTest, AnEmptyTextIsAText) {
    toLoading();
    answerText("");
    EXPECT_EQ(state(), State::ready);
    EXPECT_THAT(model->originalEditingText(), Optional(std::string()));
}

TEST_F(ClipboardEditSessionTest, ARefusedLoadShowsTheReason) {
    toLoadFailed();
    EXPECT_EQ(state(), State::loadFailed);
    EXPECT_THAT(model->editError(), Optional(std::string("No such entry")));
    EXPECT_EQ(model->editingText(), "");
}

TEST_F(ClipboardEditSessionTest, AnAnswerWithoutTextIsAFailedLoad) {
    toLoading();
    replyText(take("entry.payload"), std::nullopt);
    EXPECT_EQ(state(), State::loadFailed);
    EXPECT_THAT(model->editError(), Optional(std::string("This entry's text could not be loaded.")));
}

TEST_F(ClipboardEditSessionTest, ALoadThatIsNeverAnsweredFails) {
    toLoading();
    queue.advance(5s);
    EXPECT_EQ(state(), State::loadFailed);
    EXPECT_THAT(model->editError(), Optional(std::string("No response")));
    answerText("too late");
    EXPECT_EQ(state(), State::loadFailed);
}

TEST_F(ClipboardEditSessionTest, ALinkThatClosesFailsTheLoad) {
    toLoading();
    disconnect();
    EXPECT_EQ(state(), State::loadFailed);
    EXPECT_THAT(model->editError(), Optional(std::string("Link closed")));
}

TEST_F(ClipboardEditSessionTest, WithoutALinkTheLoadFailsAtOnce) {
    model->beginEdit(historyRow("text"));
    EXPECT_EQ(state(), State::loadFailed);
    EXPECT_THAT(model->editError(), Optional(std::string(kUnavailable)));
}

TEST_F(ClipboardEditSessionTest, WhileItLoadsItNeitherLoadsAgainNorSaves) {
    toLoading();
    model->loadEditText();
    model->saveEdit("alias", std::nullopt);
    queue.runUntilIdle();
    EXPECT_EQ(state(), State::loading);
    EXPECT_THAT(asked(), ElementsAre("entry.payload"));
}

TEST_F(ClipboardEditSessionTest, EndingWhileItLoadsDropsTheAnswer) {
    toLoading();
    model->endEdit();
    EXPECT_EQ(state(), State::closed);
    answerText("the text");
    EXPECT_EQ(state(), State::closed);
    EXPECT_EQ(model->editingText(), "");
}

TEST_F(ClipboardEditSessionTest, TheLateAnswerForOneRowDoesNotChangeTheNext) {
    toLoading();
    model->beginEdit(historyRow("other"));
    queue.runUntilIdle();
    answerText("the text of the first");
    EXPECT_EQ(state(), State::loading);
    EXPECT_EQ(model->editingText(), "");
    answerText("the text of the other");
    EXPECT_EQ(state(), State::ready);
    EXPECT_EQ(model->editingText(), "the text of the other");
}

TEST_F(ClipboardEditSessionTest, TheLateAnswerForTheSameRowDoesNotCountEither) {
    toLoading();
    const Uuid first = model->editingSessionID();
    model->beginEdit(*model->editingRow());
    queue.runUntilIdle();
    EXPECT_NE(model->editingSessionID(), first);
    refuse("entry.payload", "not_found", "No such entry");
    EXPECT_EQ(state(), State::loading);
    answerText("the text");
    EXPECT_EQ(state(), State::ready);
}

TEST_F(ClipboardEditSessionTest, ASecondAnswerToTheSameRequestChangesNothing) {
    toLoading();
    const auto request = take("entry.payload");
    for (const char* text : {"first", "second"})
        replyText(request, text);
    EXPECT_EQ(model->editingText(), "first");
}

TEST_F(ClipboardEditSessionTest, AnAnswerOnceTheModelIsGoneIsDropped) {
    toLoading();
    model.reset();
    answerText("the text");
}

// Load failed.

TEST_F(ClipboardEditSessionTest, AFailedLoadCannotBeSaved) {
    toLoadFailed();
    model->saveEdit("alias", std::nullopt);
    queue.runUntilIdle();
    EXPECT_EQ(state(), State::loadFailed);
    EXPECT_THAT(asked(), Not(Contains("entry.edit")));
}

TEST_F(ClipboardEditSessionTest, AFailedLoadCanBeTriedAgain) {
    toLoadFailed();
    model->loadEditText();
    queue.runUntilIdle();
    EXPECT_EQ(state(), State::loading);
    answerText("the text");
    EXPECT_EQ(state(), State::ready);
}

TEST_F(ClipboardEditSessionTest, AFailedLoadTriedAgainMayFailAgain) {
    toLoadFailed();
    disconnect();
    model->loadEditText();
    EXPECT_EQ(state(), State::loadFailed);
    EXPECT_THAT(model->editError(), Optional(std::string(kUnavailable)));
}

TEST_F(ClipboardEditSessionTest, AFailedLoadCanBeCancelled) {
    toLoadFailed();
    model->endEdit();
    EXPECT_EQ(state(), State::closed);
}

// Ready.

TEST_F(ClipboardEditSessionTest, CancellingForgetsWhatWasEdited) {
    toReady();
    model->setEditingText("unsaved");
    const Uuid session = model->editingSessionID();
    model->endEdit();
    EXPECT_EQ(state(), State::closed);
    EXPECT_EQ(model->editingText(), "");
    EXPECT_NE(model->editingSessionID(), session);
}

TEST_F(ClipboardEditSessionTest, AnUnchangedTextIsNotSent) {
    toReady();
    model->saveEdit("name", std::nullopt);
    queue.runUntilIdle();
    const auto request = taken<ClipboardEditRequest>("entry.edit");
    EXPECT_EQ(request, (ClipboardEditRequest{.id = idOf("text"),
                                             .scope = ClipboardScope::history,
                                             .alias = "name",
                                             .categoryID = std::nullopt,
                                             .text = std::nullopt}));
}

TEST_F(ClipboardEditSessionTest, AChangedTextIsSent) {
    toReady();
    model->setEditingText("another text");
    model->saveEdit("", std::nullopt);
    queue.runUntilIdle();
    EXPECT_THAT(taken<ClipboardEditRequest>("entry.editText").text, Optional(std::string("another text")));
}

TEST_F(ClipboardEditSessionTest, ATextThatWasClearedIsSentAsEmpty) {
    toReady();
    model->setEditingText("");
    model->saveEdit("", std::nullopt);
    queue.runUntilIdle();
    EXPECT_THAT(taken<ClipboardEditRequest>("entry.editText").text, Optional(std::string()));
}

TEST_F(ClipboardEditSessionTest, ATextChangedBackIsNotSent) {
    toReady();
    model->setEditingText("another text");
    model->setEditingText("the text");
    model->saveEdit("", std::nullopt);
    queue.runUntilIdle();
    EXPECT_THAT(asked(), ElementsAre("entry.edit"));
}

TEST_F(ClipboardEditSessionTest, AnImageIsSavedWithoutText) {
    connect(store());
    model->beginEdit(imageRow("image"));
    model->setEditingText("nobody sees this");
    model->saveEdit("name", std::nullopt);
    queue.runUntilIdle();
    const auto request = taken<ClipboardEditRequest>("entry.edit");
    EXPECT_EQ(request.text, std::nullopt);
    EXPECT_EQ(request.alias, "name");
}

TEST_F(ClipboardEditSessionTest, AnAliasIsTrimmedAndOneOfBlanksIsNone) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> aliases = {
        {"  ", std::nullopt}, {"", std::nullopt}, {"\n\t\u3000", std::nullopt}, {" a b\n", "a b"}, {"a", "a"}};
    toReady();
    for (const auto& [typed, sent] : aliases) {
        model->saveEdit(typed, std::nullopt);
        queue.runUntilIdle();
        EXPECT_EQ(taken<ClipboardEditRequest>("entry.edit").alias, sent);
        model->beginEdit(historyRow("text"));
        queue.runUntilIdle();
        answerText("the text");
    }
}

TEST_F(ClipboardEditSessionTest, TheCategoryIsSentForAFavoriteOnly) {
    const Uuid work = idOf("work");
    toReady();
    model->saveEdit("", work);
    queue.runUntilIdle();
    EXPECT_EQ(taken<ClipboardEditRequest>("entry.edit").categoryID, std::nullopt);
    model->beginEdit(favoriteRow("fav"));
    queue.runUntilIdle();
    answerText("fav");
    model->saveEdit("", work);
    queue.runUntilIdle();
    const auto request = taken<ClipboardEditRequest>("entry.edit");
    EXPECT_EQ(request.categoryID, work);
    EXPECT_EQ(request.scope, ClipboardScope::favorites);
}

TEST_F(ClipboardEditSessionTest, WithoutALinkASaveFailsAtOnceAndKeepsWhatWasTyped) {
    toReady();
    model->setEditingText("another text");
    disconnect();
    model->saveEdit("", std::nullopt);
    EXPECT_EQ(state(), State::ready);
    EXPECT_THAT(model->editError(), Optional(std::string(kUnavailable)));
    EXPECT_EQ(model->editingText(), "another text");
}

TEST_F(ClipboardEditSessionTest, ALoadedTextMayBeLoadedAnewAndStaysWhenThatFails) {
    toReady();
    model->loadEditText();
    queue.runUntilIdle();
    EXPECT_EQ(state(), State::loading);
    refuse("entry.payload", "failed", "The disk is gone");
    EXPECT_EQ(state(), State::ready);
    EXPECT_THAT(model->editError(), Optional(std::string("The disk is gone")));
    EXPECT_THAT(model->originalEditingText(), Optional(std::string("the text")));
}

// Saving.

TEST_F(ClipboardEditSessionTest, ASavedEditEndsTheSessionAndFetchesTheSnapshot) {
    toSaving();
    EXPECT_EQ(state(), State::saving);
    answer("entry.editText", ClipboardLinkEmpty{});
    EXPECT_EQ(state(), State::closed);
    EXPECT_THAT(asked(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardEditSessionTest, ARefusedSaveKeepsTheSessionOpenAndShowsTheReason) {
    toSaving();
    refuse("entry.editText", "bad_request", "The text is empty");
    EXPECT_EQ(state(), State::ready);
    EXPECT_THAT(model->editError(), Optional(std::string("The text is empty")));
    EXPECT_EQ(model->editingText(), "another text");
    EXPECT_THAT(asked(), IsEmpty());
    model->saveEdit("", std::nullopt);
    EXPECT_EQ(state(), State::saving) << "it can be tried again";
}

TEST_F(ClipboardEditSessionTest, AMainApplicationThatKnowsNoTextEditingSaysToUpdateIt) {
    toSaving();
    refuse("entry.editText", "unknown_message", "Unknown message");
    EXPECT_THAT(model->editError(), Optional(std::string("Update Vexil to edit clipboard content.")));
}

TEST_F(ClipboardEditSessionTest, AnUnknownEditKeepsItsOwnMessage) {
    toReady();
    model->saveEdit("name", std::nullopt);
    queue.runUntilIdle();
    refuse("entry.edit", "unknown_message", "Unknown message");
    EXPECT_THAT(model->editError(), Optional(std::string("Unknown message")));
}

TEST_F(ClipboardEditSessionTest, ASaveThatIsNeverAnsweredFails) {
    toSaving();
    queue.advance(5s);
    EXPECT_EQ(state(), State::ready);
    EXPECT_THAT(model->editError(), Optional(std::string("No response")));
    answer("entry.editText", ClipboardLinkEmpty{});
    EXPECT_EQ(state(), State::ready) << "too late";
}

TEST_F(ClipboardEditSessionTest, ALinkThatClosesFailsTheSave) {
    toSaving();
    disconnect();
    EXPECT_EQ(state(), State::ready);
    EXPECT_THAT(model->editError(), Optional(std::string("Link closed")));
    EXPECT_EQ(model->editingText(), "another text");
}

TEST_F(ClipboardEditSessionTest, WhileItSavesItNeitherLoadsNorSavesAgain) {
    toSaving();
    model->loadEditText();
    model->saveEdit("again", std::nullopt);
    queue.runUntilIdle();
    EXPECT_EQ(state(), State::saving);
    EXPECT_THAT(asked(), ElementsAre("entry.editText"));
}

TEST_F(ClipboardEditSessionTest, EndingWhileItSavesDropsTheAnswer) {
    toSaving();
    model->endEdit();
    answer("entry.editText", ClipboardLinkEmpty{});
    EXPECT_EQ(state(), State::closed);
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ClipboardEditSessionTest, AnotherRowOpenedWhileItSavesIsNotTouchedByTheAnswer) {
    toSaving();
    model->beginEdit(historyRow("other"));
    queue.runUntilIdle();
    refuse("entry.editText", "failed", "The disk is full");
    EXPECT_EQ(state(), State::loading);
    EXPECT_EQ(model->editingRow(), historyRow("other"));
}

TEST_F(ClipboardEditSessionTest, WhatIsTypedWhileItSavesIsKeptWhenTheSaveFails) {
    toSaving();
    model->setEditingText("typed meanwhile");
    refuse("entry.editText", "failed", "The disk is full");
    EXPECT_EQ(model->editingText(), "typed meanwhile");
}

TEST_F(ClipboardEditSessionTest, ASnapshotInEachStateLeavesTheSessionAlone) {
    const std::vector<std::function<void()>> ways = {[this] { toLoading(); }, [this] { toReady(); },
                                                     [this] { toLoadFailed(); }, [this] { toSaving(); }};
    for (const auto& enter : ways) {
        main.reset();
        queue.runUntilIdle();
        enter();
        const State before = state();
        const Uuid session = model->editingSessionID();
        sendSnapshot({.revision = 9, .history = {}, .favorites = {}, .categories = {}});
        EXPECT_EQ(state(), before);
        EXPECT_EQ(model->editingSessionID(), session);
    }
}

TEST_F(ClipboardEditSessionTest, ShowingThePanelAnewEndsTheSession) {
    toSaving();
    model->prepareForShow();
    EXPECT_EQ(state(), State::closed);
}

} // namespace
} // namespace vexil
