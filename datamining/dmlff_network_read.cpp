#include "mlff_network_read.hpp"

using namespace tavik;

extern "C" tavik_d_network *tavik_d_mlff_network_read(const char *filename, ...)
{
    ArgumentList list;
    va_start(list.arguments, filename);
    auto *result = public_call<tavik_d_network *>(
        "tavik_d_mlff_network_read", [&](Workspace &workspace, tavik_d_network *&network) {
            datamining::l_mlff_network_read(filename, list, workspace, network);
        });
    va_end(list.arguments);
    return result;
}
