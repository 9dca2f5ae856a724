// Files opened and closed with the C runtime that the library itself uses.

#include "call.hpp"
#include "checkers.hpp"

using namespace tavik;

extern "C" {

FILE *tavik_fopen(const char *name, const char *mode)
{
    return public_call<FILE *>("tavik_fopen", [=](Workspace &, FILE *&result) {
        if (name == nullptr) tavik_ermes(terminal, 65371);
        else if (check_not_null(mode, "mode")) result = std::fopen(name, mode);
    });
}

int tavik_fclose(FILE *file)
{
    return public_call<int>("tavik_fclose", [=](Workspace &, int &result) {
        result = check_not_null(file, "file") ? std::fclose(file) : -1;
    });
}

void tavik_flockfile(FILE *stream)
{
    flockfile(stream);
}

void tavik_funlockfile(FILE *stream)
{
    funlockfile(stream);
}

} // extern "C"
