// Who watches. One thread takes the frames out of the tap; each viewer has a queue of its own and a muxer of
// its own on the thread of its connection. A viewer that is slow loses frames up to a key frame; it delays
// nobody. While there is a viewer the SDK is told so, as when somebody watches in the cloud.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "backend.h"
#include "hub.h"
#include "ring_reader.h"

using SharedFrame = std::shared_ptr<const LiveFrame>;

class Viewer {
  public:
    void push(const SharedFrame &frame);
    void end();
    // The next frame; null where none came within a quarter of a second.
    SharedFrame next();
    bool ended() const;

  private:
    mutable std::mutex lock_;
    std::condition_variable more_;
    std::deque<SharedFrame> waiting_;
    bool ended_ = false, to_key_ = false;  // to_key_: frames are lost until the next key frame
};

class Live {
  public:
    Live(const Backend &behind, Hub &page, const std::string &tap)
        : behind_(behind), page_(page), reader_(tap) {}
    // Never return; one thread each.
    [[noreturn]] void read_frames();
    [[noreturn]] void keep_watching();

    // A viewer that begins with the newest key frame, where that is not old.
    std::shared_ptr<Viewer> add_viewer();
    void remove_viewer(const std::shared_ptr<Viewer> &gone);

  private:
    void take(const SharedFrame &frame);
    void end_all();

    const Backend &behind_;
    Hub &page_;
    RingReader reader_;
    std::mutex lock_;  // guards the rest
    std::condition_variable changed_;
    std::list<std::shared_ptr<Viewer>> viewers_;
    std::vector<SharedFrame> since_key_;
};
