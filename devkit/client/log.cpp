// The agent's log, as supervise writes it to agent.log.
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <fstream>

#include "follow.h"
#include "log_modules.h"
#include "names.h"
#include "output.h"

using nlohmann::json;

namespace {

constexpr size_t kLinesBefore = 10;  // that --follow begins with
constexpr char kNoClock[] = "--:--:--";

// A log that grows, and that a new ./run replaces.
class LogReader {
  public:
    explicit LogReader(std::string path) : path_(std::move(path)) {}

    bool exists() const {
        struct stat found {};
        return stat(path_.c_str(), &found) == 0;
    }

    // The whole lines since the last call.
    Texts new_lines() {
        struct stat found {};
        if (stat(path_.c_str(), &found) != 0) return {};
        if (found.st_ino != file_ || found.st_size < at_) {
            at_ = 0;
            half_.clear();
        }
        file_ = found.st_ino;
        std::ifstream log(path_, std::ios::binary);
        log.seekg(at_);
        Texts lines;
        for (char character; log.get(character); ++at_) {
            if (character != '\n') {
                half_ += character;
                continue;
            }
            lines.push_back(half_);
            half_.clear();
        }
        return lines;
    }

  private:
    std::string path_, half_;
    ino_t file_ = 0;
    off_t at_ = 0;
};

struct LogLine {
    std::string text;
    std::vector<std::string> modules;
};

// What the options leave of the log's lines. A line without a module of its own, such as what libcurl tells,
// is shown with none.
class Filter {
  public:
    explicit Filter(const Given &given) {
        if (given.has("--grep")) grep_ = given.options.at("--grep");
        if (!given.has("--module")) return;
        module_ = given.options.at("--module");
        Texts known;  // by the names without their folder
        for (const std::string &name : log_module_names()) {
            if (means_module(module_, name)) return;
            known.push_back(name.substr(name.rfind('/') + 1));
        }
        throw DeskError(unknown_text("module", module_, known));
    }

    std::vector<LogLine> of(const Texts &lines) const {
        std::vector<LogLine> left;
        for (const std::string &line : lines) {
            if (line.find(grep_) == std::string::npos) continue;
            LogLine row{line, modules_of_line(line)};
            if (module_.empty() || std::any_of(row.modules.begin(), row.modules.end(),
                                               [&](const auto &name) { return means_module(module_, name); }))
                left.push_back(std::move(row));
        }
        return left;
    }

  private:
    std::string grep_, module_;
};

// The agent writes no times: `clock` is when the line was seen to come, null for one that stood there before.
void put_line(const LogLine &line, const json &clock) {
    const std::string time = clock.is_null() ? kNoClock : clock.get<std::string>();
    std::string module = line.modules.empty() ? "-" : line.modules[0];
    module.resize(std::max<size_t>(module.size(), 24), ' ');
    put(coloured(Colour::dim, time) + "  " + coloured(Colour::cold, module) + "  " + one_line(line.text),
        {{"clock", clock}, {"modules", line.modules}, {"text", line.text}});
}

}  // namespace

int show_log(const Given &given) {
    const Filter filter(given);
    const std::string path = run_folder() + "/agent.log";
    LogReader reader(path);
    if (!reader.exists())
        throw DeskError("there is no log " + path + " (start ./run, or name its folder in DESK_RUN)");
    const bool follows = given.has("--follow");
    const std::vector<LogLine> so_far = filter.of(reader.new_lines());
    for (size_t i = follows && so_far.size() > kLinesBefore ? so_far.size() - kLinesBefore : 0;
         i < so_far.size(); ++i)
        put_line(so_far[i], nullptr);
    while (follows && pause_while_read()) {
        for (const LogLine &line : filter.of(reader.new_lines()))
            put_line(line, clock_text(std::time(nullptr)));
    }
    return 0;
}
