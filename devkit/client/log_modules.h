// Which source file of the agent printed a line of its log, by the texts that docs/LOG.md lists for each.
#ifndef DEVKIT_CLIENT_LOG_MODULES_H
#define DEVKIT_CLIENT_LOG_MODULES_H

#include <string>
#include <vector>

// The modules, "agent/polling" and so on, in the order of the document.
std::vector<std::string> log_module_names();

// The modules that may have printed the line, several where they share a text; none where nothing is known of
// it, as with what libcurl prints.
std::vector<std::string> modules_of_line(const std::string &line);

// Whether `wanted`, "polling" or "agent/polling", means the module.
bool means_module(const std::string &wanted, const std::string &module);

#endif
