#include "network_read.hpp"
#include "network_write.hpp"

using namespace tavik;

extern "C" {

void tavik_f_mlff_network_write(tavik_f_network *network, const char *filename, ...)
{
    ArgumentList list;
    va_start(list.arguments, filename);
    public_call("tavik_f_mlff_network_write", [&](Workspace &workspace) {
        datamining::l_mlff_network_write(network, filename, list, workspace);
    });
    va_end(list.arguments);
}

tavik_f_network *tavik_f_mlff_network_read(const char *filename, ...)
{
    ArgumentList list;
    va_start(list.arguments, filename);
    auto *result = public_call<tavik_f_network *>(
        "tavik_f_mlff_network_read", [&](Workspace &workspace, tavik_f_network *&network) {
            datamining::l_mlff_network_read(filename, list, workspace, network);
        });
    va_end(list.arguments);
    return result;
}

} // extern "C"
