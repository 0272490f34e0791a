// SPDX-License-Identifier: Apache-2.0
#include "bench/panel_rows.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <random>
#include <string_view>

namespace vexil::bench {

namespace {

constexpr std::string_view kWords[][14] = {
    {"The", "quick", "brown", "fox", "meeting", "tomorrow", "at", "Error", "please", "report", "invoice", "Review",
     "for", "server"},
    {"const", "auto", "return", "std::string", "if", "(!result)", "{", "}", "errno", "<", "int", "value;",
     "==", "nullptr"},
    {"https://example.com/", "index.html?", "utm_source=", "search&q=", "docs/", "en-US/", "issues/", "4711", "#L120",
     "blob/", "main/", "src/", "image.png", "www."},
    {"2026-11-21", "18:46:35", "ERROR", "INFO", "worker", "failed", "to", "connect", "127.0.0.1", "timeout", "after",
     "5000ms", "id=", "0x7ffe"},
    {"Dear", "colleagues", "attached", "find", "the", "minutes", "of", "Monday", "and", "regards", "Erika", "office",
     "projector", "lunch"},
    {"Größe", "Straße", "für", "und", "über", "Müller", "Rechnung", "Überweisung", "prêt", "déjà", "café", "Français",
     "señor", "niño"},
    {"Привет", "мир", "встреча", "завтра", "в", "Отчёт", "сервер", "ошибка", "Москва", "и", "на", "не", "пожалуйста",
     "файл"},
    {"世界", "你好", "会议", "明天", "报告", "服务器", "错误", "こんにちは", "カタカナ", "サーバー", "東京", "の",
     "한국어", "서버"},
    {"Καλημέρα", "κόσμε", "Tiếng", "Việt", "नमस्ते", "दुनिया", "שלום", "مرحبا", "cafe\u0301", "😀", "Ελλάδα", "đẹp", "สวัสดี",
     "und"},
};

std::size_t charactersIn(std::string_view utf8) {
    const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; };
    return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), begins));
}

Uuid idOf(unsigned seed, std::size_t number) {
    std::array<char, 2 * Uuid::kTextLength> text{};
    std::snprintf(text.data(), text.size(), "%08x-0000-4000-8000-%012zx", seed, number);
    return *Uuid::parse({text.data(), Uuid::kTextLength});
}

} // namespace

std::vector<ClipboardRowSummary> sampleRows(std::size_t count, std::size_t characters, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<ClipboardRowSummary> rows(count);
    for (std::size_t number = 0; number < count; ++number) {
        auto& row = rows[number];
        row.id = idOf(seed, number);
        const auto& words = kWords[random() % std::size(kWords)];
        for (std::size_t filled = 0; filled < characters;) {
            const std::string_view word = words[random() % std::size(words)];
            row.preview.append(word).append(" ");
            filled += charactersIn(word) + 1;
        }
    }
    return rows;
}

} // namespace vexil::bench
