// SPDX-License-Identifier: Apache-2.0
#include "store/cli/archive_commands.h"

#include "store/cli/archive_line.h"
#include "store/cli/archive_reader.h"
#include "store/cli/command_line.h"
#include "store/cli/counted.h"
#include "store/cli/file_access.h"
#include "store/cli/progress_bar.h"
#include "store/cli/replaced_file.h"
#include "store/cli/store_access.h"

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

namespace vexil {

namespace {

std::string entriesText(std::uint64_t count) {
    return counted(count, "entry", "entries");
}

struct Exported {
    std::int64_t items = 0;
    std::uint64_t entries = 0;
};

Result<Exported, StoreError> writeArchive(StoreDatabase& database, const OutputStream& output,
                                          const OutputStream& messages) {
    ArchiveLine header;
    header.header = {std::string(ArchiveHeader::kFormat), ArchiveHeader::kVersion};
    if (auto written = output.write(textOfLine(header)); !written)
        return Failure{written.error()};
    ProgressBar progress(messages, "exporting");
    Exported exported;
    auto read = database.archive().read(
        [&](ClipboardArchive::Size size) -> Result<Done, StoreError> {
            progress.setTotal(size.entries);
            return Done{};
        },
        [&](const ArchivedItem& item) {
            ++exported.items;
            exported.entries += std::holds_alternative<ArchivedEntry>(item) ? 1 : 0;
            progress.moveTo(exported.entries);
            return output.write(textOfLine(item));
        });
    if (!read)
        return Failure{read.error()};
    ArchiveLine end;
    end.end = {exported.items};
    if (auto written = output.write(textOfLine(end)); !written)
        return Failure{written.error()};
    return exported;
}

CommandResult exportStore(const CommandContext& context, const std::string& file) {
    if (file == "-" && context.output.terminal())
        return usageFailure("an export is not for a terminal; give a file, or send standard output into one");
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    if (file == "-") {
        const auto exported = writeArchive(*database, context.output, context.messages);
        return exported ? CommandResult(Done{}) : Failure{CommandError(exported.error())};
    }
    auto replaced = ReplacedFile::create(file);
    if (!replaced)
        return Failure{replaced.error()};
    const auto exported = writeArchive(*database, OutputStream(replaced->descriptor(), std::nullopt), context.messages);
    if (!exported)
        return failure(file + " is not written: " + exported.error().sentence);
    if (auto finished = replaced->finish(); !finished)
        return finished;
    return commandResult(context.output.write("exported " + entriesText(exported.value().entries) + "\n"));
}

std::uint64_t sizeOfRegularFile(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return 0;
    return static_cast<std::uint64_t>(status.st_size);
}

std::string summaryOf(const ClipboardArchive::Outcome& outcome) {
    std::string summary = "imported " + entriesText(outcome.added);
    if (outcome.categories > 0)
        summary += (outcome.hostsProfiles > 0 ? ", " : " and ") + counted(outcome.categories, "category", "categories");
    if (outcome.hostsProfiles > 0)
        summary += " and " + counted(outcome.hostsProfiles, "hosts profile");
    if (outcome.known > 0)
        summary += "; " + entriesText(outcome.known) + (outcome.known == 1 ? " was" : " were") + " there already";
    if (outcome.fellOut > 0)
        summary += "; the history had no room for " + std::to_string(outcome.fellOut) + " of the oldest";
    return summary + "\n";
}

CommandResult importFrom(const CommandContext& context, const InputStream& input, const std::string& name,
                         std::uint64_t size) {
    auto database = openOrCreateStore(context);
    if (!database)
        return Failure{database.error()};
    ArchiveReader reader(input);
    Result<ClipboardArchive::Outcome, StoreError> outcome = ClipboardArchive::Outcome{};
    {
        ProgressBar progress(context.messages, "importing");
        progress.setTotal(size);
        outcome = database->archive().write([&] {
            progress.moveTo(reader.bytesRead());
            return reader.next();
        });
    }
    if (!outcome) {
        const std::string line = reader.lineNumber() > 0 ? ":" + std::to_string(reader.lineNumber()) : "";
        return failure(name + line + ": " + outcome.error().sentence + "; nothing is imported");
    }
    return commandResult(context.output.write(summaryOf(outcome.value())));
}

CommandResult importStore(const CommandContext& context, const std::string& file) {
    if (file != "-") {
        const auto descriptor = openForReading(file);
        if (!descriptor)
            return Failure{descriptor.error()};
        const int number = descriptor.value().number();
        return importFrom(context, InputStream(number, false), file, sizeOfRegularFile(number));
    }
    if (context.input.isTerminal())
        return usageFailure("an export is not typed on a terminal; give a file, or send one into standard input");
    return importFrom(context, context.input, "standard input", 0);
}

} // namespace

void addArchiveCommands(CommandLine& commandLine) {
    auto exported = std::make_shared<std::string>();
    CLI::App& exporting =
        commandLine.addCommand("export", "Write all of the store to a file, images included",
                               [exported](CommandContext& context) { return exportStore(context, *exported); });
    addArgument(exporting, "FILE", *exported, "Where to; - is standard output");
    addRemarks(exporting, "The file holds everything that was copied, unencrypted. Only you can read it.");
    auto imported = std::make_shared<std::string>();
    CLI::App& importing =
        commandLine.addCommand("import", "Add what an export holds to the store",
                               [imported](CommandContext& context) { return importStore(context, *imported); });
    addArgument(importing, "FILE", *imported, "What export has written; - is standard input");
    addRemarks(importing, "What is in the store already stays as it is. A broken file changes nothing.");
}

} // namespace vexil
