// Files that outlive a power cut, and files in folders where other users may plant links and FIFOs. Any
// thread; each blocks for the disk. Whoever writes a path serialises its writers.
#ifndef Z55_AGENT_UTILS_FILES_H
#define Z55_AGENT_UTILS_FILES_H

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct FileClose {
    void operator()(FILE *file) const {
        std::fclose(file);
    }
};
using File = std::unique_ptr<FILE, FileClose>;

// Opens a regular file for reading. A link in its place is not followed and a FIFO not waited for: like a
// missing file they give null, errno set; what the system is short of is told in the log.
[[nodiscard]] File open_regular(const char *path);

// The first `longest` bytes of `file`, which was opened at `path`; takes memory for what there is. Nothing,
// after a line in the log, when it cannot be read.
[[nodiscard]] std::optional<std::string> read_stream(FILE *file, const char *path, size_t longest);

// Opens a regular file for appending, which is created where it is missing; a power cut then leaves its name,
// so that lines that are synced cannot go with it. A link in its place gives null, errno set.
[[nodiscard]] File open_to_append(const char *path);

// Writes what `file` still buffers to the disk and closes it. Returns false, errno set, when that or any
// writing before it failed.
[[nodiscard]] bool close_synced(File file);

// Replaces the file at `path` by one that holds `text`, with `mode` as far as the umask allows, or with mode
// and owner of `like`: who reads meanwhile and a power cut see the old file or the new one. A link in its
// place is replaced, not followed. A folder that takes no new file has it written in place, but, without
// `like`, none that another user owns or that has a second name. Returns false, errno set, when it could not
// be written; the old one then stands, but for a disk that fails while it is written in place.
[[nodiscard]] bool replace_file(const std::string &path, std::string_view text, mode_t mode,
                                const struct stat *like = nullptr);

// Deletes the file so that a power cut does not bring it back. Returns false, errno set, when there was none
// or it stays.
[[nodiscard]] bool remove_file(const std::string &path);

#endif
