// A text that a server sent, in a malloc block: where there is no memory for it the transfer fails, not the
// process.
#ifndef Z55_AGENT_UTILS_REPLY_H
#define Z55_AGENT_UTILS_REPLY_H

#include <cstdlib>
#include <memory>
#include <string_view>

class Reply {
  public:
    // Copies `text` into the place of what is held, or behind it. Returns false, and what is held stays, when
    // there is no memory.
    [[nodiscard]] bool assign(std::string_view text) {
        return store(0, text);
    }
    [[nodiscard]] bool append(std::string_view text) {
        return store(length_, text);
    }

    // Whether a text has come; it may be empty.
    explicit operator bool() const {
        return block_ != nullptr;
    }
    // The text, "" when none has come.
    std::string_view operator*() const {
        return {c_str(), length_};
    }
    const char *c_str() const {
        return block_ ? block_.get() : "";
    }
    // Gives the block away, null when no text has come: the caller frees it.
    char *release() {
        length_ = 0;
        return block_.release();
    }

  private:
    struct FreeBlock {
        void operator()(char *block) const {
            std::free(block);
        }
    };
    bool store(size_t at, std::string_view text);

    std::unique_ptr<char, FreeBlock> block_;  // length_ + 1 bytes, NUL-terminated
    size_t length_ = 0;
};

#endif
