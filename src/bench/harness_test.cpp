// SPDX-License-Identifier: Apache-2.0
#include "bench/harness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace vexil::bench;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

Outcome outcomeOf(std::vector<const char*> arguments, const std::vector<Measure>& measures) {
    arguments.insert(arguments.begin(), "bench");
    CaptureStdout();
    CaptureStderr();
    const int status = run(static_cast<int>(arguments.size()), arguments.data(), measures);
    return {status, GetCapturedStdout(), GetCapturedStderr()};
}

Measure measureOf(std::string name, double measured, double reference) {
    return {std::move(name), "ms", [=] { return Trial{[=] { return measured; }, [=] { return reference; }}; }};
}

TEST(HarnessTest, PrintsTheMediansAsOneLineOfJson) {
    int calls = 0;
    const Measure measure{"a.b", "us", [&calls] {
                              return Trial{[&calls] { return static_cast<double>(calls++ % 3); }, [] { return 4.0; }};
                          }};
    const Outcome outcome = outcomeOf({"--rounds", "9"}, {measure});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, R"({"name": "a.b", "unit": "us", "measured": 1, "reference": 4, )"
                           R"("measured_p95": 2, "reference_p95": 4, "rounds": 9})"
                           "\n");
}

TEST(HarnessTest, LetsMeasuredAndReferenceTakeTurnsInGoingFirst) {
    std::string order;
    Measure measure{"a", "ms", [&order] {
                        return Trial{[&order] { return order += 'm', 1.0; }, [&order] { return order += 'r', 1.0; }};
                    }};
    measure.warmUps = 0;
    EXPECT_EQ(outcomeOf({"--rounds", "4"}, {measure}).status, 0);
    EXPECT_EQ(order, "mrrmmrrm");
}

TEST(HarnessTest, ListsNamesWithoutPreparingAnything) {
    const Measure explosive{"x", "ms", []() -> Trial { throw std::runtime_error("prepared"); }};
    const Outcome outcome = outcomeOf({"--list"}, {explosive, measureOf("y", 1, 1)});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "x\ny\n");
}

TEST(HarnessTest, RunsOnlyWhatIsAskedFor) {
    const Outcome outcome = outcomeOf({"--only", "y", "--rounds", "1"}, {measureOf("x", 1, 1), measureOf("y", 1, 1)});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr(R"("name": "y")"));
    EXPECT_EQ(outcome.out.find(R"("name": "x")"), std::string::npos);
}

TEST(HarnessTest, RefusesANameThatDoesNotExist) {
    const Outcome outcome = outcomeOf({"--only", "z"}, {measureOf("x", 1, 1)});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "no measure is called z\n");
}

TEST(HarnessTest, RefusesArgumentsThatItDoesNotKnow) {
    EXPECT_EQ(outcomeOf({"--fast"}, {}).status, 1);
    EXPECT_EQ(outcomeOf({"--only"}, {}).status, 1);
    EXPECT_EQ(outcomeOf({"--rounds", "0"}, {}).status, 1);
    EXPECT_EQ(outcomeOf({"--rounds", "3x"}, {}).status, 1);
}

TEST(HarnessTest, ATrialThatThrowsFailsTheRunAndSaysWhichOne) {
    const Measure broken{"x", "ms", [] {
                             return Trial{[]() -> double { throw std::runtime_error("no peer"); }, [] { return 1.0; }};
                         }};
    const Outcome outcome = outcomeOf({}, {broken});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "x: no peer\n");
}

} // namespace
