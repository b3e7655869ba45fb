#include "log_modules.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <tuple>

#include "desk_run.h"

namespace {

constexpr char kAny = '\1';  // stands for a conversion

// One line of a text that the agent prints.
struct Pattern {
    std::string text;
    size_t fixed;  // characters that are no conversion's
    std::vector<std::string> modules;
};

struct Reference {
    std::vector<Pattern> patterns;  // those with most fixed characters first
    std::vector<std::string> modules;
};

std::string trimmed(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string without_suffix(const std::string &file) {
    return file.substr(0, file.rfind('.'));
}

// The text as the document shows it, cut at its line ends, with kAny for each conversion.
std::vector<std::string> lines_of(const std::string &shown) {
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < shown.size(); ++i) {
        if (shown[i] == '\\' && i + 1 < shown.size()) {
            const char escaped = shown[++i];
            if (escaped == 'n')
                lines.emplace_back();
            else
                lines.back() += escaped == 't' ? '\t' : escaped == 'r' ? '\r' : escaped;
        } else if (shown[i] == '%' && i + 1 < shown.size() && shown[i + 1] != '%') {
            i = shown.find_first_of("diuxcsm", i + 1);
            lines.back() += kAny;
            if (i == std::string::npos) break;
        } else {
            if (shown[i] == '%') ++i;
            lines.back() += shown[i];
        }
    }
    return lines;
}

// "agent/main.cpp" of "(also in agent/main.cpp, z55cgi.cpp; stderr)".
std::vector<std::string> also_in(const std::string &notes) {
    std::vector<std::string> files;
    size_t at = notes.find("also in ");
    if (at == std::string::npos) return files;
    at += 8;
    const size_t end = std::min(notes.find_first_of(";)", at), notes.size());
    while (at < end) {
        const size_t comma = std::min(notes.find(',', at), end);
        files.push_back(without_suffix(trimmed(notes.substr(at, comma - at))));
        at = comma + 1;
    }
    return files;
}

void add_text(Reference &reference, const std::string &line, const std::string &module) {
    const size_t end = line.rfind('`');
    const std::string notes = line.substr(end + 1);
    std::vector<std::string> modules = also_in(notes);
    // The document names files from the section's own folder or from the top: both are known by their end.
    modules.insert(modules.begin(), module);
    const bool open = notes.find("no line end") != std::string::npos;
    for (std::string part : lines_of(line.substr(3, end - 3))) {
        part = trimmed(part);
        const auto fixed = part.size() - static_cast<size_t>(std::count(part.begin(), part.end(), kAny));
        if (fixed < 3) continue;  // fits too much
        if (open) part += kAny;
        reference.patterns.push_back({part, fixed, modules});
    }
}

Reference read_reference() {
    Reference reference;
    std::ifstream document(DESK_LOG_REFERENCE);
    std::string module;
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("## ")) {
            const bool named = line.starts_with("## `");
            module = named ? without_suffix(line.substr(4, line.find('`', 4) - 4)) : "";
            if (named) reference.modules.push_back(module);
        } else if (line.starts_with("- `") && !module.empty()) {
            add_text(reference, line, module);
        }
    }
    std::sort(reference.patterns.begin(), reference.patterns.end(), [](const Pattern &a, const Pattern &b) {
        return std::tie(b.fixed, a.text) < std::tie(a.fixed, b.text);
    });
    return reference;
}

const Reference &reference() {
    static const Reference read = read_reference();
    return read;
}

bool fits(const std::string &pattern, const std::string &line) {
    size_t p = 0, l = 0, star = std::string::npos, resumed = 0;
    while (l < line.size()) {
        if (p < pattern.size() && pattern[p] == kAny) {
            star = p++;
            resumed = l;
        } else if (p < pattern.size() && pattern[p] == line[l]) {
            ++p;
            ++l;
        } else if (star != std::string::npos) {
            p = star + 1;
            l = ++resumed;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == kAny) ++p;
    return p == pattern.size();
}

}  // namespace

std::vector<std::string> log_module_names() {
    return reference().modules;
}

std::vector<std::string> modules_of_line(const std::string &line) {
    const std::string bare = trimmed(line);
    for (const Pattern &pattern : reference().patterns) {
        if (fits(pattern.text, bare)) return pattern.modules;
    }
    return {};
}

bool means_module(const std::string &wanted, const std::string &module) {
    return module == wanted || module.ends_with("/" + wanted) || wanted.ends_with("/" + module);
}
