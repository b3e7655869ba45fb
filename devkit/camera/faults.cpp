#include "faults.h"

#include <stdexcept>

#include "checked_merge.h"

namespace {

const char *const kCommonFields =
    R"({"endpoint":"*","match":"","kind":"","count":0,"skip":0,"every":1,"delay_ms":0})";

bool fits(const json &order, const HttpRequest &request) {
    const std::string endpoint = order["endpoint"], match = order["match"];
    return (endpoint == "*" || endpoint == request.endpoint()) &&
           (request.target.find(match) != std::string::npos || request.body.find(match) != std::string::npos);
}

// Whether the request, which fits, is one of those that the fault takes.
bool takes(Fault &candidate) {
    const json &order = candidate.order;
    const int count = order["count"], position = candidate.seen++ - order["skip"].get<int>();
    return position >= 0 && (position + 1) % order["every"].get<int>() == 0 &&
           (count == 0 || candidate.hits < count);
}

}  // namespace

int add_fault(FaultList &list, const json &order) {
    const auto added = std::make_shared<Fault>();
    if (!order.is_object()) throw std::invalid_argument("a fault is an object");
    added->kind = find_misbehaviour(order.value("kind", ""));
    if (!added->kind) throw std::invalid_argument("no such kind of misbehaviour");
    added->parameters = json::parse(added->kind->defaults);
    added->order = json::parse(kCommonFields);
    added->order.update(added->parameters);
    checked_merge(added->order, order);
    if (added->order["every"] < 1) throw std::invalid_argument("every: 1 and more");
    for (auto &[name, value] : added->parameters.items()) value = added->order[name];

    std::lock_guard guard(list.lock);
    added->id = ++list.last_id;
    list.faults.push_back(added);
    return added->id;
}

std::shared_ptr<Fault> take_fault(FaultList &list, const HttpRequest &request) {
    std::lock_guard guard(list.lock);
    for (const auto &candidate : list.faults)
        if (fits(candidate->order, request) && takes(*candidate)) {
            ++candidate->hits;
            return candidate;
        }
    return nullptr;
}

bool clear_faults(FaultList &list, int id) {
    std::lock_guard guard(list.lock);
    const auto removed = std::erase_if(list.faults, [id](const auto &each) {
        if (id != 0 && each->id != id) return false;
        each->cleared = true;
        return true;
    });
    return id == 0 || removed > 0;
}

json faults_json(FaultList &list) {
    std::lock_guard guard(list.lock);
    json shown = json::array();
    for (const auto &each : list.faults) {
        json row = {{"id", each->id}, {"hits", each->hits}};
        row.update(each->order);
        shown.push_back(std::move(row));
    }
    return shown;
}
