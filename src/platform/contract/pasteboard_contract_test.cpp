// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/pasteboard_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace vexil {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::UnorderedElementsAre;

PasteboardContents text(std::string value) {
    return {.text = std::move(value), .data = {}};
}

PasteboardContents data(std::string type, std::string_view bytes) {
    PasteboardContents contents;
    contents.data.push_back({.type = std::move(type), .bytes = copyOf(bytesOf(bytes))});
    return contents;
}

class PasteboardContract : public testing::TestWithParam<PasteboardSessionFactory> {
protected:
    Pasteboard& ours() { return session->ours(); }
    Pasteboard& theirs() { return session->theirs(); }

    std::int64_t written(Pasteboard& pasteboard, PasteboardContents contents) {
        const auto count = session->write(pasteboard, std::move(contents));
        EXPECT_TRUE(count.has_value());
        return count.value_or(-1);
    }

    // As a poll would: their copy has been seen when the count has moved.
    void copyElsewhere(PasteboardContents contents) {
        const std::int64_t before = ours().changeCount();
        written(theirs(), std::move(contents));
        ASSERT_TRUE(session->runUntil([this, before] { return ours().changeCount() != before; }));
    }

    // Until they have seen that many changes, whatever they are asked may be answered none: a change overtook it.
    void awaitChangesOfTheirs(std::int64_t before, int changes) {
        ASSERT_TRUE(session->runUntil([&] { return theirs().changeCount() >= before + changes; }));
    }

    std::unique_ptr<PasteboardSession> session = GetParam()();
};

} // namespace

TEST_P(PasteboardContract, HoldsNothingAtFirst) {
    EXPECT_EQ(session->types(ours()), std::nullopt);
    EXPECT_EQ(session->string(ours()), std::nullopt);
    EXPECT_EQ(session->data(ours(), pasteboard_type::kPng), std::nullopt);
    EXPECT_EQ(session->data(ours(), pasteboard_type::kAnyImage), std::nullopt);
}

TEST_P(PasteboardContract, ReadsTheTextThatAnotherProgramCopied) {
    copyElsewhere(text("Grüße, 世界"));
    EXPECT_THAT(session->types(ours()), Optional(ElementsAre(pasteboard_type::kString)));
    EXPECT_THAT(session->string(ours()), Optional(std::string("Grüße, 世界")));
    EXPECT_EQ(session->data(ours(), pasteboard_type::kPng), std::nullopt);
}

TEST_P(PasteboardContract, AnEmptyTextIsATextAllTheSame) {
    copyElsewhere(text(""));
    EXPECT_THAT(session->string(ours()), Optional(std::string()));
}

TEST_P(PasteboardContract, ReadsBytesByTheirType) {
    for (const char* type : {pasteboard_type::kPng, pasteboard_type::kTiff}) {
        copyElsewhere(data(type, type));
        EXPECT_THAT(session->types(ours()), Optional(ElementsAre(type)));
        EXPECT_THAT(session->data(ours(), type), Optional(copyOf(bytesOf(type))));
        EXPECT_EQ(session->string(ours()), std::nullopt);
        EXPECT_EQ(session->data(ours(), pasteboard_type::kAnyImage), std::nullopt);
    }
}

TEST_P(PasteboardContract, AnImageInAnotherFormatIsFoundAsAnyImage) {
    copyElsewhere(data(pasteboard_type::kJpeg, "jpeg bytes"));
    EXPECT_THAT(session->types(ours()),
                Optional(UnorderedElementsAre(pasteboard_type::kJpeg, pasteboard_type::kAnyImage)));
    EXPECT_THAT(session->data(ours(), pasteboard_type::kAnyImage), Optional(copyOf(bytesOf("jpeg bytes"))));
    EXPECT_EQ(session->data(ours(), pasteboard_type::kPng), std::nullopt);
}

TEST_P(PasteboardContract, MarksAreTypesBesideTheContent) {
    PasteboardContents secret = text("secret");
    secret.data.push_back({.type = pasteboard_type::kConcealed, .bytes = {}});
    copyElsewhere(std::move(secret));
    EXPECT_THAT(session->types(ours()),
                Optional(UnorderedElementsAre(pasteboard_type::kString, pasteboard_type::kConcealed)));

    PasteboardContents passing = text("passing");
    passing.data.push_back({.type = pasteboard_type::kTransient, .bytes = {}});
    copyElsewhere(std::move(passing));
    EXPECT_THAT(session->types(ours()),
                Optional(UnorderedElementsAre(pasteboard_type::kString, pasteboard_type::kTransient)));
}

TEST_P(PasteboardContract, AConcealedOwnerThatThawsAfterItsTypeListTimedOutIsNotRead) {
    const std::int64_t before = ours().changeCount();
    session->copyConcealedAndHang("secret");
    ASSERT_TRUE(session->runUntil([&] { return ours().changeCount() != before; }));
    EXPECT_EQ(session->types(ours()), std::nullopt);
    session->endHang();
    EXPECT_EQ(session->string(ours()), std::nullopt);
    EXPECT_EQ(session->data(ours(), pasteboard_type::kPng), std::nullopt);
    EXPECT_EQ(session->types(ours()), std::nullopt);
    copyElsewhere(text("next"));
    EXPECT_THAT(session->string(ours()), Optional(std::string("next")));
}

TEST_P(PasteboardContract, EachWriteGetsTheChangeCountOfItsOwn) {
    const std::int64_t first = written(ours(), text("one"));
    EXPECT_EQ(ours().changeCount(), first);
    const std::int64_t second = written(ours(), text("two"));
    EXPECT_GT(second, first);
    EXPECT_EQ(ours().changeCount(), second);
    EXPECT_THAT(session->string(ours()), Optional(std::string("two")));
    copyElsewhere(text("three"));
    EXPECT_GT(ours().changeCount(), second);
}

TEST_P(PasteboardContract, WritesInOneTurnGetDifferentCountsAndTheLastOneStays) {
    const std::int64_t seenByThem = theirs().changeCount();
    std::vector<std::int64_t> counts;
    for (const char* value : {"one", "two", "three"})
        ours().write(text(value), [&counts](std::optional<std::int64_t> count) { counts.push_back(count.value()); });
    ASSERT_TRUE(session->runUntil([&counts] { return counts.size() == 3; }));
    EXPECT_LT(counts[0], counts[1]);
    EXPECT_LT(counts[1], counts[2]);
    EXPECT_EQ(ours().changeCount(), counts[2]);
    awaitChangesOfTheirs(seenByThem, 3);
    EXPECT_THAT(session->string(theirs()), Optional(std::string("three")));
}

TEST_P(PasteboardContract, WhatIsWrittenCanBeReadBackByOursAndByTheirs) {
    PasteboardContents contents = text("a caption");
    contents.data.push_back({.type = pasteboard_type::kPng, .bytes = copyOf(bytesOf("png bytes"))});
    const std::int64_t seenByThem = theirs().changeCount();
    written(ours(), std::move(contents));
    awaitChangesOfTheirs(seenByThem, 1);
    for (Pasteboard* reader : {&ours(), &theirs()}) {
        EXPECT_THAT(session->types(*reader),
                    Optional(UnorderedElementsAre(pasteboard_type::kString, pasteboard_type::kPng)));
        EXPECT_THAT(session->string(*reader), Optional(std::string("a caption")));
        EXPECT_THAT(session->data(*reader, pasteboard_type::kPng), Optional(copyOf(bytesOf("png bytes"))));
    }
}

TEST_P(PasteboardContract, AFormThatIsPromisedIsMadeWhenItIsAskedForAndOnlyOnce) {
    std::atomic<int> made = 0;
    PasteboardContents contents = data(pasteboard_type::kJpeg, "jpeg bytes");
    contents.promise = {.type = pasteboard_type::kPng,
                        .bytes = std::make_shared<PromisedBytes>([&made](ByteView source) {
                            ++made;
                            return copyOf(bytesOf("png of " + std::string(textOf(source))));
                        })};
    const std::int64_t seenByThem = theirs().changeCount();
    written(ours(), std::move(contents));
    awaitChangesOfTheirs(seenByThem, 1);
    for (Pasteboard* reader : {&ours(), &theirs()}) {
        EXPECT_THAT(
            session->types(*reader),
            Optional(UnorderedElementsAre(pasteboard_type::kJpeg, pasteboard_type::kAnyImage, pasteboard_type::kPng)));
        EXPECT_THAT(session->data(*reader, pasteboard_type::kJpeg), Optional(copyOf(bytesOf("jpeg bytes"))));
    }
    EXPECT_EQ(made, 0);
    for (Pasteboard* reader : {&theirs(), &ours(), &theirs()})
        EXPECT_THAT(session->data(*reader, pasteboard_type::kPng), Optional(copyOf(bytesOf("png of jpeg bytes"))));
    EXPECT_EQ(made, 1);
}

TEST_P(PasteboardContract, APromiseThatCannotBeKeptIsNone) {
    PasteboardContents contents = data(pasteboard_type::kJpeg, "jpeg bytes");
    contents.promise = {.type = pasteboard_type::kPng,
                        .bytes = std::make_shared<PromisedBytes>([](ByteView) { return std::nullopt; })};
    const std::int64_t seenByThem = theirs().changeCount();
    written(ours(), std::move(contents));
    awaitChangesOfTheirs(seenByThem, 1);
    for (Pasteboard* reader : {&theirs(), &ours()}) {
        EXPECT_EQ(session->data(*reader, pasteboard_type::kPng), std::nullopt);
        EXPECT_THAT(session->data(*reader, pasteboard_type::kJpeg), Optional(copyOf(bytesOf("jpeg bytes"))));
    }
}

TEST_P(PasteboardContract, EmptyContentsClearThePasteboard) {
    copyElsewhere(text("old"));
    const std::int64_t before = ours().changeCount();
    const std::int64_t seenByThem = theirs().changeCount();
    EXPECT_GT(written(ours(), {}), before);
    awaitChangesOfTheirs(seenByThem, 1);
    EXPECT_THAT(session->types(theirs()), Optional(IsEmpty()));
    EXPECT_EQ(session->string(theirs()), std::nullopt);
    EXPECT_EQ(session->string(ours()), std::nullopt);
}

TEST_P(PasteboardContract, MillionsOfBytesArriveUnharmed) {
    Bytes large(9'000'001);
    std::uint32_t state = 1;
    for (std::uint8_t& byte : large)
        byte = static_cast<std::uint8_t>((state = state * 1'664'525 + 1'013'904'223) >> 24);
    PasteboardContents contents;
    contents.data.push_back({.type = pasteboard_type::kPng, .bytes = large});
    copyElsewhere(std::move(contents));
    const auto read = session->data(ours(), pasteboard_type::kPng);
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(*read == large);
}

TEST_P(PasteboardContract, NoCompletionComesFromWithinTheCall) {
    int completions = 0;
    ours().types([&completions](const auto&) { ++completions; });
    ours().string([&completions](const auto&) { ++completions; });
    ours().data(pasteboard_type::kPng, [&completions](const auto&) { ++completions; });
    ours().write({}, [&completions](auto) { ++completions; });
    EXPECT_EQ(completions, 0);
    EXPECT_TRUE(session->runUntil([&completions] { return completions == 4; }));
}

INSTANTIATE_TEST_SUITE_P(, PasteboardContract, testing::ValuesIn(pasteboardSessionFactories()),
                         [](const auto& factory) { return factory.param.name; });

} // namespace vexil
