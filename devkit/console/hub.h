// All that the page shows, and who looks on. The state consists of named sections, each a value that is set
// or a list that is added to; a listener gets every section as it is and then each change, as texts of a
// server-sent stream. Called from any thread; nothing here waits for a listener.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "json.h"

// One open stream. A listener that falls too far behind is ended: its browser comes back and begins with the
// state.
class Listener {
  public:
    void push(const std::shared_ptr<const std::string> &event);
    // The next event; an empty text where none came within the time; null when the listener is to be ended.
    std::shared_ptr<const std::string> next(std::chrono::milliseconds limit);

  private:
    std::mutex lock_;
    std::condition_variable more_;
    std::deque<std::shared_ptr<const std::string>> waiting_;
    bool overrun_ = false;
};

class Hub {
  public:
    // Replaces a section; says nothing where it is the same already.
    void set(const std::string &name, const json &value);
    // Appends to a list, of which the newest `keep` are kept. Without items the list is there from then on,
    // empty.
    void add(const std::string &name, const json &items, size_t keep);
    // A copy of a section; null where there is none.
    json section(const std::string &name) const;
    // The whole state, by name.
    json state() const;
    std::shared_ptr<Listener> listen();

  private:
    void tell(const std::string &name, const json &value);
    json list_of(const std::string &name) const;

    mutable std::mutex lock_;
    std::map<std::string, json> values_;
    std::map<std::string, std::deque<json>> lists_;
    std::vector<std::weak_ptr<Listener>> listeners_;
};
