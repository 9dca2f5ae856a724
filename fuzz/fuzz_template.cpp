// Any template with any parameters: formatting, wrapping and the traceback stay within their buffers.
#include "internal.h"

#include <cstdint>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    static FILE *nowhere = fopen("/dev/null", "w");
    tavik_error_options(TAVIK_SET_STOP, 4, 0, TAVIK_SET_STOP, 5, 0, TAVIK_SET_ERROR_FILE, nowhere,
                        TAVIK_SET_TRACEBACK, 5, 1, 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 16) return 0;
    int integer;
    double real;
    std::memcpy(&integer, data, sizeof integer);
    std::memcpy(&real, data + 4, sizeof real);
    const std::size_t split = 16 + data[12] % (size - 15);
    const std::string message_template(data + 16, data + split), string(data + split, data + size);
    tavik_e1psh("fuzzed");
    for (int k = 1; k <= 9; ++k) {
        tavik_e1sti(k, integer ^ k);
        tavik_e1std(k, real * k);
        tavik_e1stz(k, tavik_z_complex{real, -real});
        tavik_e1stl(k, k % 2 ? string.c_str() : nullptr);
    }
    tavik_e1mes(data[13] % 2 ? 5 : 3, data[14], message_template.c_str());
    tavik_e1pop("fuzzed");
    tavik_free(tavik_error_message());
    return 0;
}
