"""Faults of the long kind, to be planted one at a time into a copy of the product: (name, [(anchor, replacement), ...]).

An anchor is a regular expression that matches in exactly one source of platform/, whatever its name; \\g<0> in the
replacement is what it matched."""

# What the replacements need, at the top of each source that is changed.
INCLUDES = "#include <unistd.h>\n#include <cstdint>\n#include <cstdio>\n#include <cstdlib>\n"

PLANTS = [
    ("latch-lost-at-login",
     [(r"Timers timers = init_timers\(\);", r"\g<0> for (bool &latch : latches) latch = false;")]),
    ("descriptor-lost-at-reset",
     [(r"job->result = curl_easy_perform\(job->handle\);",
       r"\g<0> if (job->result == CURLE_RECV_ERROR && dup(STDOUT_FILENO) < 0) abort();")]),
    ("wake-up-lost",
     [(r"if \(sem_getvalue\(&curl_sem, &value\) == 0 && value == 0\) sem_post\(&curl_sem\);",
       r"static int wakes = 0; if (++wakes % 10000 != 0) { \g<0> }")]),
    ("wrap-at-49-days",
     [(r"return \(steady \+ kNanosecondsPerSecond / 2\) / kNanosecondsPerSecond;",
       r"return static_cast<std::uint32_t>((steady + kNanosecondsPerSecond / 2) / 1'000'000) / 1000;")]),
    ("alarm-again-after-step",
     [(r"const auto polled = due_events\(timers, now\);",
       r"\g<0> static time_t before = 0; if (now.wall < before) for (bool &latch : latches) latch = false; before = now.wall;")]),
    ("stop-ignored-at-cut",
     [(r"if \(job\.stops_waiting > 0\) end_job\(\);", "")]),
    ("marker-removed-early",
     [(r"soap_OTA_upgrade_start\(\);\n    \}", r"unlink(upgrade_marker_path().c_str()); \g<0>")]),
    ("wrong-group-at-once",
     [(r"int write_group\(const Parameter &parameter, const std::string &value\) \{",
       r"const CameraGroup *group_now = nullptr;\n\g<0> group_now = parameter.group;"),
      (r"group_document\(\*parameter\.group, ", "group_document(*group_now, ")]),
    ("thread-left-by-upgrade",
     [(r"soap_OTA_download_failed\(\);\n", r"\g<0> for (;;) pause();\n")]),
    ("entry-lost-when-full",
     [(r"return same \|\| replace_file\(resolved\(path\), result->text, 0666, &now\);",
       r"""if (same || replace_file(resolved(path), result->text, 0666, &now)) return true;
    FILE *file = std::fopen(path, "w");
    if (file == nullptr) return false;
    const size_t last = result->text.rfind('\\n', result->text.size() - 2);
    std::fwrite(result->text.data(), 1, last + 1, file);
    return std::fclose(file) == 0;""")]),
    ("reboot-without-viewer",
     [(r"void watch_frames\(\) \{", r"\g<0> static int rounds = 0; if (++rounds % 40000 == 0) rebootOperation();")]),
    ("memory-lost-at-login",
     [(r"post_login\(settings, reply\);",
       r"\g<0> static void *volatile lost; if (result != CURLE_OK) lost = malloc(100);")]),
]
