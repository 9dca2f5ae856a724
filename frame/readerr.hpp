// Message templates and symbolic names of error codes, from the message file.
#pragma once

#include "error_struct.hpp"

namespace tavik {

// What the message file says of a code. The texts stay valid until the thread looks up another code.
const MessageLookup &find_message(tavik_error_struct &state, long code);

// Closes the message file and releases its tables; the next lookup opens it again.
void release_message_file();

} // namespace tavik
