// SPDX-License-Identifier: Apache-2.0
#include "store/cli/progress_bar.h"

#include <algorithm>
#include <cstddef>

namespace vexil {

namespace {

constexpr std::size_t kMaxBar = 40;
constexpr std::size_t kBesidesBar = 9; // blanks, brackets and the percentage

} // namespace

ProgressBar::~ProgressBar() {
    if (shown_ != kNothing)
        static_cast<void>(output_.write("\r\x1B[K")); // a line that stays does no harm
}

void ProgressBar::moveTo(std::uint64_t done) {
    if (!output_.terminal() || total_ == 0)
        return;
    const std::uint64_t percent = std::min(done, total_) * 100 / total_;
    const std::size_t columns = output_.terminal()->columns;
    if (percent == shown_ || columns < what_.size() + kBesidesBar)
        return;
    shown_ = percent;
    const std::size_t width = std::min(kMaxBar, columns - what_.size() - kBesidesBar);
    const std::size_t filled = width * percent / 100;
    const std::string number = std::to_string(percent);
    static_cast<void>(output_.write("\r" + what_ + " [" + std::string(filled, '#') + std::string(width - filled, ' ') +
                                    "] " + std::string(3 - number.size(), ' ') + number + "%"));
}

} // namespace vexil
