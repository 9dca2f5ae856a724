// Version texts, from the environment.

#include "call.hpp"
#include "error.hpp"

#include <cstdlib>

using namespace tavik;

namespace {

// `prefix` stands before the variable's value; an unset variable gives an empty text without it.
void text_of(const char *variable, const char *prefix, Workspace &workspace, char *&result)
{
    const char *value = std::getenv(variable);
    if (value == nullptr) value = prefix = "";
    const std::size_t size = std::strlen(prefix) + std::strlen(value) + 1;
    char *text = workspace.result<char>(size);
    if (text == nullptr) return;
    std::snprintf(text, size, "%s%s", prefix, value);
    result = workspace.hand_over(text);
}

void l_version(int code, Workspace &workspace, char *&result)
{
    switch (code) {
    case TAVIK_LIBRARY_VERSION: text_of("ZEP_VERSION", "TAVI Kestrel Version ", workspace, result); break;
    case TAVIK_COMPILER_VERSION: text_of("ZEP_COMPILER_VERSION", "", workspace, result); break;
    case TAVIK_OS_VERSION: text_of("ZEP_OS_VERSION", "", workspace, result); break;
    default:
        tavik_e1sti(1, code);
        tavik_e1sti(2, 1);
        raise_in_level("l_version", terminal, 103);
    }
}

} // namespace

extern "C" char *tavik_version(int code)
{
    return public_call<char *>(
        "tavik_version", [=](Workspace &workspace, char *&result) { l_version(code, workspace, result); });
}
