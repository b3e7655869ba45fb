// Names for the rows of INSTANTIATE_TEST_SUITE_P, so that ctest tells what a case is about.
#ifndef TESTS_SUPPORT_ROW_NAMES_H
#define TESTS_SUPPORT_ROW_NAMES_H

#include <cctype>
#include <string>

// `text` as a case's name may be: "at the limit" is "at_the_limit".
inline std::string case_name(std::string text) {
    for (char &character : text) {
        if (std::isalnum(static_cast<unsigned char>(character)) == 0) character = '_';
    }
    return text;
}

// By the row's member `name`.
inline constexpr auto by_name = [](const auto &row) { return case_name(row.param.name); };
// For rows that are texts.
inline constexpr auto by_text = [](const auto &row) { return case_name(row.param); };

#endif
