// SPDX-License-Identifier: Apache-2.0
#include "store/cli/content_input.h"

#include "base/text.h"
#include "store/cli/file_access.h"

#include <utility>

namespace vexil {

Result<Bytes, CommandError> readNamed(const CommandContext& context, const std::string& file, std::size_t limit) {
    if (file != "-")
        return readFile(file, limit);
    auto content = context.input.readAll(limit);
    if (!content)
        return Failure{CommandError(content.error())};
    return std::move(content).value();
}

CommandResult checkText(std::string_view text) {
    if (text.empty())
        return failure("the text is empty");
    if (text.size() > kMaxContentBytes)
        return failure("the text is longer than " + std::to_string(kMaxContentBytes) +
                       " bytes, which is more than the link to Vexil Shortcut carries");
    if (!text::isValidUtf8(text))
        return failure("the text is not UTF-8");
    return Done{};
}

Result<std::string, CommandError> textArgument(const CommandContext& context, const std::string& given) {
    std::string text = given;
    if (given == "-") {
        const auto read = context.input.readAll(kMaxContentBytes);
        if (!read)
            return Failure{CommandError(read.error())};
        text = textOf(*read);
    }
    if (auto checked = checkText(text); !checked)
        return Failure{checked.error()};
    return text;
}

} // namespace vexil
