// What every target has: the pieces of an input, the voice of a broken rule, and a product that starts
// afresh. A target defines prepare() and try_input(); libFuzzer or the replay calls them, on one thread.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

// Once, before the first input. Standard output is closed by then: the product's log is not looked at.
void prepare();

class Input;
// One input, whatever it holds. What it leaves behind must not change what the next one does.
void try_input(Input input);

// Says which rule of the product does not hold and ends the process.
[[noreturn]] void violated(const char *rule);
inline void check(bool holds, const char *rule) {
    if (!holds) violated(rule);
}

// An input, taken off its front. Where nothing is left numbers are 0 and texts empty.
class Input {
  public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}
    bool empty() const {
        return rest_.empty();
    }
    uint8_t byte();
    uint32_t number();  // of four bytes, the lowest first
    // Up to the next byte 0xFF, which goes too and is no character of UTF-8.
    std::string text();
    std::string bytes(size_t most);
    std::string rest() {
        return bytes(rest_.size());
    }

  private:
    std::string_view rest_;
};

// A malloc block of exactly these bytes, so that the sanitizer sees who reads behind them; null data for
// none.
struct Block {
    explicit Block(std::string_view text);
    struct Free {
        void operator()(char *block) const {
            std::free(block);
        }
    };
    std::unique_ptr<char, Free> data;
    size_t size;
};

// The configuration holds these bytes.
void write_file(const char *path, std::string_view text);
std::string read_file(const char *path);

// --- Literal references: as the rules say it, character by character.

// What C's isspace says, and strtol's number held to an int.
bool is_space(char c);
int reference_number(std::string_view text);
// A C text's part of the bytes.
std::string until_nul(std::string_view text);

#endif
