// Files that the client reads and writes.
#include "desk_fixture.h"
#include "row_names.h"

namespace {

constexpr auto by_arguments = [](const auto &row) { return case_name(row.param.arguments); };

std::string content(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(Desk, snapshot_is_decoded_into_its_file) {
    const char *const encoded[] = {"", "/w==", "/9g=", "/9j/", "/9j/AA=="};
    const std::string bytes("\xff\xd8\xff\0", 4);
    for (size_t length = 0; length <= bytes.size(); ++length) {
        answer(std::string(R"({"results":[{"result":0,"data_base64":")") + encoded[length] + "\"}]}");
        EXPECT_EQ(run_desk("snapshot /tmp/photo.jpg 1").exit_code, 0);
        EXPECT_EQ(content("/tmp/photo.jpg"), bytes.substr(0, length));
    }
    answer(R"({"results":[{"result":-99}]})");
    EXPECT_EQ(run_desk("snapshot /tmp/photo.jpg").exit_code, 1);
}

std::string little_endian(unsigned value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
    return text;
}

std::string wav(unsigned format, unsigned channels, unsigned rate, unsigned bits, const std::string &data) {
    return "RIFF....WAVEfmt " + little_endian(16, 4) + little_endian(format, 2) + little_endian(channels, 2) +
           little_endian(rate, 4) + little_endian(rate * 2, 4) + little_endian(2, 2) +
           little_endian(bits, 2) + "LIST" + little_endian(3, 4) + "abc." + "data" +
           little_endian(static_cast<unsigned>(data.size()), 4) + data;
}

TEST_F(Desk, talk_sends_the_samples_of_a_wav_file) {
    std::ofstream("/tmp/a.wav") << wav(1, 1, 12000, 16, "abcd");
    EXPECT_EQ(run_desk("talk /tmp/a.wav fast").exit_code, 0);
    EXPECT_EQ(asked(), "POST /talk {\"pace\":\"fast\",\"pcm_base64\":\"YWJjZA==\"}\n");
}

struct SoundCase {
    const char *arguments;  // the file's name
    std::string content;
    const char *complaint;
};

const SoundCase kSounds[] = {
    {"stereo.wav", wav(1, 2, 12000, 16, "abcd"), "12000 Hz, 2 channels, 16 bit; the camera plays"},
    {"fast.wav", wav(1, 1, 44100, 16, "abcd"), "44100 Hz, 1 channels, 16 bit"},
    {"coded.wav", wav(7, 1, 12000, 16, "abcd"), "has coded samples"},
    {"empty.wav", wav(1, 1, 12000, 16, ""), "holds no samples"},
    {"cut.wav", "RIFF....WAVEfmt ", "is a WAV file without a format"},
    {"notes.txt", "some text", "is no WAV file, and not called .raw or .pcm"},
    {"empty.raw", "", "holds no samples"},
};

class DeskSound : public Desk, public testing::WithParamInterface<SoundCase> {};

TEST_P(DeskSound, that_does_not_fit_is_refused) {
    const std::string path = std::string("/tmp/") + GetParam().arguments;
    std::ofstream(path) << GetParam().content;
    const Outcome result = run_desk("talk " + path);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_NE(result.output.find("desk: " + path), std::string::npos) << result.output;
    EXPECT_NE(result.output.find(GetParam().complaint), std::string::npos) << result.output;
    EXPECT_EQ(asked(), "");
}

INSTANTIATE_TEST_SUITE_P(Files, DeskSound, testing::ValuesIn(kSounds), by_arguments);

TEST_F(Desk, file_without_a_folder_lands_in_the_run_folder) {
    answer("picture");
    const std::string from_elsewhere = "cd /tmp/working && " DESK " camera photo ";
    EXPECT_EQ(run_shell(from_elsewhere + "last.jpg").output, "/tmp/last.jpg: 7 bytes\n");
    EXPECT_EQ(content("/tmp/last.jpg"), "picture");
    EXPECT_EQ(run_shell(from_elsewhere + "./last.jpg").output, "./last.jpg: 7 bytes\n");
    EXPECT_EQ(content("/tmp/working/last.jpg"), "picture");
    EXPECT_EQ(run_shell(from_elsewhere + "/tmp/none/last.jpg").output,
              "desk: cannot write /tmp/none/last.jpg: No such file or directory\n");
}

TEST_F(Desk, files_of_the_device) {
    std::ofstream("/tmp/working/a") << "line\n";
    EXPECT_EQ(run_desk("cat /tmp/working/a").output, "line\n");
    EXPECT_EQ(run_desk("ls /tmp/working").output, "a  5\n");
    EXPECT_EQ(run_desk("ls /tmp/nowhere").exit_code, 1);
    // Seen through the process that view.pid names.
    std::ofstream("/tmp/view.pid") << 1;
    EXPECT_EQ(run_desk("cat /tmp/working/a").output, "line\n");
    std::ofstream("/tmp/view.pid") << 999999;
    EXPECT_EQ(run_desk("cat /tmp/working/a").exit_code, 1);
    // A file has the name by which it was asked for.
    std::ofstream("/tmp/view.pid") << getpid();
    EXPECT_EQ(run_desk("cat /tmp/none").output, "desk: cannot read /tmp/none: No such file or directory\n");
    EXPECT_EQ(run_desk("cat /tmp").output, "desk: cannot read /tmp: it is a folder\n");
    EXPECT_EQ(run_desk("ls /tmp/none").output, "desk: cannot list /tmp/none: No such file or directory\n");
}

}  // namespace
