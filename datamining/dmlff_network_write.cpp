#include "mlff_network_write.hpp"

using namespace tavik;

extern "C" void tavik_d_mlff_network_write(tavik_d_network *network, const char *filename, ...)
{
    ArgumentList list;
    va_start(list.arguments, filename);
    public_call("tavik_d_mlff_network_write", [&](Workspace &workspace) {
        datamining::l_mlff_network_write(network, filename, list, workspace);
    });
    va_end(list.arguments);
}
