// replay_TARGET FOLDER: gives every file of the folder to the target, as libFuzzer would.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int count, char **arguments) {
    if (count != 2) {
        std::fputs("usage: replay_TARGET FOLDER\n", stderr);
        return 2;
    }
    LLVMFuzzerInitialize(&count, &arguments);
    std::vector<std::string> seeds;
    for (const auto &entry : std::filesystem::directory_iterator(arguments[1])) seeds.push_back(entry.path());
    std::sort(seeds.begin(), seeds.end());
    for (const std::string &seed : seeds) {
        std::fprintf(stderr, "%s\n", seed.c_str());  // the last one is the one that it died of
        const Block input(read_file(seed.c_str()));
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data.get()), input.size);
    }
    check(!seeds.empty(), "there are seeds");
    return 0;
}
