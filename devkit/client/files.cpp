#include "files.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "desk_run.h"
#include "output.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned kPcm = 1, kExtensible = 0xfffe, kChannels = 1, kRate = 12000, kBits = 16;
constexpr char kMake[] = "; make one with: ffmpeg -i FILE -ar 12000 -ac 1 NEW.wav";

unsigned little_endian(const std::string &data, size_t at, size_t bytes) {
    unsigned value = 0;
    for (size_t i = bytes; i-- > 0;) value = value << 8 | static_cast<std::uint8_t>(data[at + i]);
    return value;
}

void check_format(const std::string &path, const std::string &file, size_t at) {
    const unsigned format = little_endian(file, at, 2), channels = little_endian(file, at + 2, 2),
                   rate = little_endian(file, at + 4, 4), bits = little_endian(file, at + 14, 2);
    const bool known = format == kPcm || format == kExtensible;
    if (known && channels == kChannels && rate == kRate && bits == kBits) return;
    throw DeskError(path + (known ? " has " : " has coded samples, ") + std::to_string(rate) + " Hz, " +
                    std::to_string(channels) + " channels, " + std::to_string(bits) +
                    " bit; the camera plays plain samples of 12000 Hz, 1 channel, 16 bit" + kMake);
}

// The chunk's content begins at the result; npos when there is none.
size_t find_chunk(const std::string &file, const char *name, size_t &length) {
    for (size_t at = 12; at + 8 <= file.size();) {
        length = std::min<size_t>(little_endian(file, at + 4, 4), file.size() - at - 8);
        if (file.compare(at, 4, name) == 0) return at + 8;
        at += 8 + length + length % 2;
    }
    return std::string::npos;
}

std::string wav_samples(const std::string &path, const std::string &file) {
    size_t length = 0;
    const size_t format = find_chunk(file, "fmt ", length);
    if (format == std::string::npos || length < 16) throw DeskError(path + " is a WAV file without a format");
    check_format(path, file, format);
    const size_t data = find_chunk(file, "data", length);  // a stream's length may say more than there is
    return data == std::string::npos ? "" : file.substr(data, length);
}

}  // namespace

std::string read_file(const std::string &path, const std::string &called) {
    const std::string &name = called.empty() ? path : called;
    std::error_code absent;
    if (fs::is_directory(path, absent)) throw DeskError("cannot read " + name + ": it is a folder");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw DeskError("cannot read " + name + ": " + std::strerror(errno));
    return {std::istreambuf_iterator<char>(file), {}};
}

void save_file(const std::string &name, const std::string &data) {
    const std::string path = name.find('/') == std::string::npos ? run_folder() + "/" + name : name;
    std::ofstream file(path, std::ios::binary);
    if (!file.write(data.data(), static_cast<std::streamsize>(data.size())).flush()) {
        throw DeskError("cannot write " + path + ": " + std::strerror(errno));
    }
    put(path + ": " + bytes_text(static_cast<double>(data.size())), {{"file", path}, {"bytes", data.size()}});
}

std::string read_samples(const std::string &path) {
    const std::string file = read_file(path);
    const bool wav = file.size() >= 12 && file.starts_with("RIFF") && file.compare(8, 4, "WAVE") == 0;
    if (!wav && !path.ends_with(".raw") && !path.ends_with(".pcm"))
        throw DeskError(path + " is no WAV file, and not called .raw or .pcm as bare samples are" + kMake);
    const std::string samples = wav ? wav_samples(path, file) : file;
    if (samples.empty()) throw DeskError(path + " holds no samples");
    return samples;
}
