// Queries of several values: their kind, how many names, the names, the camera's answer.
#include "agent/status_query.h"

#include "agent/utils/reply_text.h"
#include "support/wire.h"

namespace {

enum Kind { kStatus, kStatuses, kNotifications, kSettings };

// Literal but for the scanning of one value, which the target "reply" looks into.
std::optional<QueryResult> reference_query(const wire::Answer &answer,
                                           const std::vector<const char *> &names) {
    const auto reply = wire::reference_last_piece(answer);
    if (!wire::reference_succeeds(answer) || !reply) return std::nullopt;
    QueryResult values(names.size());
    const auto code = find_xml_value(*reply, "ErrorCode");
    if (code && reference_number(*code) != 0) {
        if (!values.empty()) values[0] = ("ERRORCODE:" + *code).substr(0, 39);
        return values;
    }
    for (size_t i = 0; i < names.size(); i++) values[i] = find_xml_value(*reply, names[i]);
    return values;
}

void check_single(const std::optional<std::string> &value, const std::optional<QueryResult> &expected) {
    check(value == (expected ? (*expected)[0] : std::nullopt), "one key is queried as several are");
}

void check_several(const std::optional<QueryResult> &values, const std::optional<QueryResult> &expected) {
    check(values == expected, "each name's value stands in its slot, an error in the first");
    if (!values) return;
    const bool refused = !values->empty() && (*values)[0] && (*values)[0]->rfind("ERRORCODE:", 0) == 0;
    check((query_error(*values) != nullptr) == refused, "an error is known by its marker");
    if (refused)
        check((*values)[0]->substr(10) == query_error(*values), "the error is what follows the marker");
}

}  // namespace

void prepare() {
    wire::start_queue();
}

void try_input(Input input) {
    wire::configure();
    const int kind = input.byte() % 4;
    const size_t count = kind == kStatus ? 1 : input.byte() % 16;
    std::vector<std::string> texts(count);
    for (std::string &text : texts) text = until_nul(input.text());
    std::vector<const char *> names;
    for (const std::string &text : texts) names.push_back(text.c_str());
    const wire::Answer answer = wire::take_answer(input);
    wire::script({answer});
    const auto expected = reference_query(answer, names);
    if (kind == kStatus) return check_single(getCameraStatus("12345", "camera", names[0]), expected);
    if (kind == kSettings) return check_several(getCameraSettings("12345", "camera", names), expected);
    check_several(getCameraStatuses("12345", "camera", names, kind == kNotifications), expected);
}
