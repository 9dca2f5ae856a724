// The process's message file: opened when the first message is needed, once; a failure is final.

#include "readerr.hpp"
#include "critical.hpp"
#include "message_file.hpp"
#include "message_file_format.hpp"

#include <cstdlib>

namespace tavik {
namespace {

constexpr char default_path[] = "./:$HOME/:/usr/lib/:/usr/local/lib/";

enum class FileState { unopened, usable, failed };

// Both change under readerr_0 and readerr_1 together; records are read under readerr_1.
FileState file_state = FileState::unopened;
MessageFile file;

void open_once(const tavik_error_struct &state)
{
    const char *reason = nullptr;
    alone_in(section::readerr_0, [&] {
        if (file_state != FileState::unopened) return;
        const char *path = state.file_path != nullptr ? state.file_path : std::getenv("TAVIKERRPATH");
        alone_in(section::readerr_1, [&] { reason = file.open(path != nullptr ? path : default_path); });
        file_state = reason == nullptr ? FileState::usable : FileState::failed;
    });
    // Not inside the section: the stream may be locked by a thread that waits for a message.
    if (reason != nullptr) std::fprintf(stderr, "Error in reading %s\n%s.\n", message_file::name, reason);
}

} // namespace

const MessageLookup &find_message(tavik_error_struct &state, long code)
{
    MessageLookup &lookup = state.lookup;
    if (code == lookup.code && lookup.text != nullptr) return lookup;
    // A lookup always goes to the default name, whatever name was set.
    std::free(state.file_name);
    state.file_name = nullptr;
    open_once(state);
    alone_in(section::readerr_1, [&] { file.look_up(lookup, code); });
    return lookup;
}

void release_message_file()
{
    alone_in(section::readerr_0, [] {
        alone_in(section::readerr_1, [] { file.close(); });
        if (file_state == FileState::usable) file_state = FileState::unopened;
    });
}

} // namespace tavik
