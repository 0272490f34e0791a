// SPDX-License-Identifier: Apache-2.0
// Folding: texts that a search takes for the same become the same bytes.
#pragma once

#include <string>
#include <string_view>

namespace vexil::text {

// Which letter is the other case of i. Turkish and Azeri have two: i and İ, ı and I.
enum class CaseRules { common, turkic };

// The rules of a locale such as "tr_TR.UTF-8" or "az-AZ".
[[nodiscard]] CaseRules caseRulesOf(std::string_view locale);

// The rules of the process, from the values of LC_ALL, LC_CTYPE and LANG, each null where it is not set. The first that
// is neither null nor empty counts.
[[nodiscard]] CaseRules caseRulesOf(const char* lcAll, const char* lcCtype, const char* lang);

// `utf8` with the case of its letters folded, in composed form (NFC): texts that differ in case, or in whether an
// accent is a character of its own, fold to the same bytes; "ß" folds as "SS" does; letters that differ in their
// accents stay different. An ill-formed sequence counts as U+FFFD. The outcome is well-formed and is for comparing, not
// for showing. Any thread.
[[nodiscard]] std::string fold(std::string_view utf8, CaseRules rules);

// The same, appended: for building one large text without a string for each part of it.
void appendFolded(std::string& folded, std::string_view utf8, CaseRules rules);

// As fold(), and without accents: the marks of Latin, Greek and Cyrillic letters and the vowel points of Hebrew and
// Arabic go; marks that make another letter, such as those of kana and of Indian scripts, stay.
[[nodiscard]] std::string foldWithoutAccents(std::string_view utf8, CaseRules rules);

} // namespace vexil::text
