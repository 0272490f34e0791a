// SPDX-License-Identifier: Apache-2.0
#include "bench/harness.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <exception>
#include <optional>
#include <span>
#include <string_view>

namespace vexil::bench {
namespace {

struct Options {
    bool listOnly = false;
    std::vector<std::string_view> only;
    std::optional<int> rounds;
};

struct Summary {
    double median;
    double percentile95;
};

std::optional<int> positiveNumber(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < 1)
        return std::nullopt;
    return number;
}

std::optional<Options> optionsOf(std::span<const char* const> arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == "--list") {
            options.listOnly = true;
        } else if (argument == "--only" && hasValue) {
            options.only.emplace_back(arguments[++i]);
        } else if (argument == "--rounds" && hasValue) {
            options.rounds = positiveNumber(arguments[++i]);
            if (!options.rounds)
                return std::nullopt;
        } else {
            return std::nullopt;
        }
    }
    return options;
}

double quantile(const std::vector<double>& sorted, double share) {
    const double position = share * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::size_t>(position);
    const std::size_t above = std::min(below + 1, sorted.size() - 1);
    return std::lerp(sorted[below], sorted[above], position - static_cast<double>(below));
}

Summary summaryOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return {quantile(values, 0.5), quantile(values, 0.95)};
}

void runOne(const Measure& measure, std::optional<int> roundsAsked) {
    const Trial trial = measure.prepare();
    const int rounds = roundsAsked.value_or(measure.rounds);
    const int warmUps = rounds == 1 ? 0 : measure.warmUps;
    std::vector<double> measured;
    std::vector<double> reference;
    for (int round = -warmUps; round < rounds; ++round) {
        // Who goes first changes from round to round: what one leaves in the caches must not always serve the other.
        const bool referenceFirst = round % 2 != 0;
        const double first = referenceFirst ? trial.reference() : trial.measured();
        const double second = referenceFirst ? trial.measured() : trial.reference();
        if (round < 0)
            continue;
        measured.push_back(referenceFirst ? second : first);
        reference.push_back(referenceFirst ? first : second);
    }
    const Summary ours = summaryOf(std::move(measured));
    const Summary theirs = summaryOf(std::move(reference));
    std::printf(R"({"name": "%s", "unit": "%s", "measured": %.6g, "reference": %.6g, )"
                R"("measured_p95": %.6g, "reference_p95": %.6g, "rounds": %d})"
                "\n",
                measure.name.c_str(), measure.unit.c_str(), ours.median, theirs.median, ours.percentile95,
                theirs.percentile95, rounds);
    std::fflush(stdout);
}

} // namespace

int run(int argc, const char* const* argv, const std::vector<Measure>& measures) {
    const auto arguments = std::span(argv, static_cast<std::size_t>(argc)).subspan(1);
    const auto options = optionsOf(arguments);
    if (!options) {
        std::fputs("usage: [--list] [--only NAME]... [--rounds N]\n", stderr);
        return 1;
    }
    for (const std::string_view name : options->only) {
        if (std::none_of(measures.begin(), measures.end(), [&](const Measure& m) { return m.name == name; })) {
            std::fprintf(stderr, "no measure is called %.*s\n", static_cast<int>(name.size()), name.data());
            return 1;
        }
    }
    for (const Measure& measure : measures) {
        const auto& only = options->only;
        if (!only.empty() && std::find(only.begin(), only.end(), measure.name) == only.end())
            continue;
        if (options->listOnly) {
            std::puts(measure.name.c_str());
            continue;
        }
        try {
            runOne(measure, options->rounds);
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s: %s\n", measure.name.c_str(), failure.what());
            return 1;
        }
    }
    return 0;
}

} // namespace vexil::bench
