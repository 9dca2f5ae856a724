// Any bytes as the message file: it is found through a search path that begins with the working folder.
#include "internal.h"
#include "message_file.hpp"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

std::string folder;

void remove_folder()
{
    unlink((folder + "tavik_e.bin").c_str());
    rmdir(folder.c_str());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // In memory where there is such a folder: each input becomes a file.
    for (std::string name : {"/dev/shm/fuzz_XXXXXX", "fuzz_XXXXXX"}) {
        if (mkdtemp(name.data()) == nullptr) continue;
        folder = name + "/";
        break;
    }
    if (folder.empty()) abort();
    atexit(remove_folder);
    static FILE *nowhere = fopen("/dev/null", "w");
    tavik_error_options(TAVIK_SET_STOP, 4, 0, TAVIK_SET_STOP, 5, 0, TAVIK_SET_ERROR_FILE, nowhere, 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FILE *file = fopen((folder + "tavik_e.bin").c_str(), "wb");
    if (file == nullptr) abort();
    fwrite(data, 1, size, file);
    fclose(file);
    tavik::MessageFile messages;
    const char *reason = messages.open(folder.c_str());
    if (reason != nullptr && reason[0] == '\0') abort();
    // Codes that the file may hold: those in its own table, in either byte order, and a few fixed ones.
    tavik::MessageLookup lookup = {};
    tavik_e1psh("fuzzed");
    for (long code : {0L, 1L, 603L, 65535L, size > 15 ? data[14] + 256L * data[15] : 2L,
                      size > 17 ? data[16] * 256L + data[17] : 3L}) {
        messages.look_up(lookup, code);
        tavik_e1sti(1, 1);
        tavik_e1stl(1, lookup.name);
        tavik_e1mes(3, code, lookup.text);
    }
    tavik_e1mes(0, 0, " ");
    tavik_e1pop("fuzzed");
    free(lookup.record);
    messages.close();
    return 0;
}
