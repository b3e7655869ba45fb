// Shell commands that leave their answer in a file which the command itself names, in a folder where other
// users may plant files and links.
#ifndef Z55_AGENT_UTILS_SHELL_FILE_H
#define Z55_AGENT_UTILS_SHELL_FILE_H

#include <optional>
#include <string>

// Makes the file at `path` anew, runs `command`, whose redirection fills it, and returns what it then holds,
// 64 KiB at most; "" when the command failed, nothing when the file cannot be made. `answered`, where not
// null, tells whether the command ran well and all of its answer could be read; a line in the log tells what
// could not. Whatever stood at the path, a link too, is removed and not followed; nobody else can put
// anything there before the shell opens it where the folder is sticky, as /tmp is. Any thread, one at a time
// for a path. Blocks for run_shell.
[[nodiscard]] std::optional<std::string> shell_file_text(const char *command, const char *path,
                                                         bool *answered = nullptr);

#endif
