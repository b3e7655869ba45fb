#include "checked_merge.h"

#include <set>
#include <stdexcept>
#include <string>

namespace {

bool same_type(const json &a, const json &b) {
    return a.is_number() ? b.is_number() : a.type() == b.type();
}

bool may_be_negative(const std::string &name) {
    static const std::set<std::string> signed_names{"value", "recording_refuse"};
    return signed_names.contains(name);
}

}  // namespace

void checked_merge(json &target, const json &changes) {
    if (!changes.is_object()) throw std::invalid_argument("an object is expected");
    json merged = target;
    for (const auto &[name, value] : changes.items()) {
        const auto known = merged.find(name);
        if (known == merged.end()) throw std::invalid_argument("unknown: " + name);
        if (!same_type(*known, value)) throw std::invalid_argument("wrong type: " + name);
        if (value.is_number() && value < 0 && !may_be_negative(name))
            throw std::invalid_argument("negative: " + name);
        if (value.is_object())
            checked_merge(*known, value);
        else
            *known = value;
    }
    target = std::move(merged);
}
