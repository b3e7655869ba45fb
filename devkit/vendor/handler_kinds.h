// How each of the agent's handlers is called: its signature, JSON arguments in, JSON result out.
#pragma once

#include "contract.h"
#include "json_http.h"

namespace desk {

// Calls `handler` as this order says: call.at("args") holds the arguments, more keys beside it belong to
// single kinds. Throws bad_request or a JSON error for arguments that do not fit. Blocks as long as the
// handler does.
using HandlerInvoker = json (*)(AnyFunction handler, const json &call);

struct HandlerRow {
    const char *name;
    HandlerInvoker invoke;
    int slot;         // index in the callback table, -1: not in it
    bool by_pointer;  // the exported name is a variable that holds the function's address
};

// Null for a name that is not in the table.
const HandlerRow *find_handler(const std::string &name);

// The name in place `slot` of the callback table.
const char *callback_name(int slot);

}  // namespace desk
