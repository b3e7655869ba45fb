#include "hub.h"

#include <algorithm>

namespace {

constexpr size_t kMostWaiting = 4096;  // events

std::shared_ptr<const std::string> event_text(const std::string &name, const json &value) {
    return std::make_shared<const std::string>("event: " + name + "\ndata: " + json_text(value) + "\n\n");
}

}  // namespace

void Listener::push(const std::shared_ptr<const std::string> &event) {
    const std::lock_guard guard(lock_);
    overrun_ = overrun_ || waiting_.size() >= kMostWaiting;
    if (!overrun_) waiting_.push_back(event);
    more_.notify_one();
}

std::shared_ptr<const std::string> Listener::next(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock_);
    more_.wait_for(guard, limit, [this] { return overrun_ || !waiting_.empty(); });
    if (overrun_) return nullptr;
    if (waiting_.empty()) return std::make_shared<const std::string>();
    const auto event = waiting_.front();
    waiting_.pop_front();
    return event;
}

void Hub::tell(const std::string &name, const json &value) {
    std::erase_if(listeners_, [](const auto &each) { return each.expired(); });
    if (listeners_.empty()) return;
    const auto text = event_text(name, value);
    for (const auto &each : listeners_) {
        if (const auto open = each.lock()) open->push(text);
    }
}

void Hub::set(const std::string &name, const json &value) {
    const std::lock_guard guard(lock_);
    json &kept = values_[name];
    if (kept == value) return;
    kept = value;
    tell(name, value);
}

void Hub::add(const std::string &name, const json &items, size_t keep) {
    const std::lock_guard guard(lock_);
    std::deque<json> &list = lists_[name];
    if (items.empty()) return;
    list.insert(list.end(), items.begin(), items.end());
    while (list.size() > keep) list.pop_front();
    tell(name, items);
}

json Hub::list_of(const std::string &name) const {
    const auto &list = lists_.at(name);
    return json(json::array_t(list.begin(), list.end()));
}

json Hub::section(const std::string &name) const {
    const std::lock_guard guard(lock_);
    if (lists_.contains(name)) return list_of(name);
    const auto found = values_.find(name);
    return found == values_.end() ? json() : found->second;
}

json Hub::state() const {
    const std::lock_guard guard(lock_);
    json all = json::object();
    for (const auto &[name, value] : values_) all[name] = value;
    for (const auto &[name, list] : lists_) all[name] = list_of(name);
    return all;
}

std::shared_ptr<Listener> Hub::listen() {
    const std::lock_guard guard(lock_);
    const auto made = std::make_shared<Listener>();
    made->push(event_text("hello", json::object()));
    for (const auto &[name, value] : values_) made->push(event_text(name, value));
    for (const auto &[name, list] : lists_) made->push(event_text(name, list_of(name)));
    made->push(event_text("ready", json::object()));
    listeners_.push_back(made);
    return made;
}
