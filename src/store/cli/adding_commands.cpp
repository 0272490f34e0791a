// SPDX-License-Identifier: Apache-2.0
#include "store/cli/adding_commands.h"

#include "store/cli/command_line.h"
#include "store/cli/content_input.h"
#include "store/cli/file_access.h"
#include "store/cli/store_access.h"
#include "store/database/clipboard_entries.h"
#include "store/database/jpeg_image.h"

#include <memory>
#include <optional>
#include <string>

namespace vexil {

namespace {

constexpr std::size_t kMaxImageFileBytes = 256U << 20;

struct AddOptions {
    std::optional<std::string> text;
    std::optional<std::string> imageFile;
};

CommandResult store(const CommandContext& context, ClipboardKind kind, ByteView content) {
    if (content.size() > kMaxContentBytes)
        return failure("the content is longer than " + std::to_string(kMaxContentBytes) +
                       " bytes, which is more than the link to Vexil Shortcut carries");
    auto database = openOrCreateStore(context);
    if (!database)
        return Failure{database.error()};
    const auto recorded = database->entries().record(kind, content, context.now());
    if (!recorded)
        return Failure{recorded.error()};
    return commandResult(context.output.write(recorded->id.toString() + "\n"));
}

CommandResult addImage(const CommandContext& context, const std::string& file) {
    auto content = readNamed(context, file, kMaxImageFileBytes);
    if (!content)
        return Failure{content.error()};
    if (jpegSize(*content))
        return store(context, ClipboardKind::image, *content);
    const auto jpeg = context.toJpeg(*content);
    if (!jpeg)
        return failure(file + " is no image that can be read; PNG, JPEG, TIFF, WebP, BMP and GIF are known");
    return store(context, ClipboardKind::image, *jpeg);
}

CommandResult addEntry(const CommandContext& context, const AddOptions& options) {
    if (options.imageFile && options.text)
        return usageFailure("give either a text or --image");
    if (options.imageFile)
        return addImage(context, *options.imageFile);
    if (!options.text && context.input.isTerminal())
        return usageFailure("there is nothing to add; give a text, - for standard input, or --image FILE");
    const auto text = textArgument(context, options.text.value_or("-"));
    if (!text)
        return Failure{text.error()};
    return store(context, ClipboardKind::text, bytesOf(*text));
}

} // namespace

void addAddingCommands(CommandLine& commandLine) {
    auto options = std::make_shared<AddOptions>();
    CLI::App& command =
        commandLine.addCommand("add", "Add a text or an image, and print its id",
                               [options](CommandContext& context) { return addEntry(context, *options); });
    addArgument(command, "TEXT", options->text, "The text; - or nothing reads standard input");
    addOption(command, "--image", "FILE", options->imageFile, "An image, which is made a JPEG; - is standard input");
    addRemarks(command, "Examples:\n"
                        "  vexil-store add \"a line to paste later\"\n"
                        "  ls | vexil-store add\n"
                        "  vexil-store add --image picture.png");
}

} // namespace vexil
