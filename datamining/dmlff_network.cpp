#include "mlff_network.hpp"
#include "mlff_network_init.hpp"

using namespace tavik;

extern "C" {

tavik_d_network *tavik_d_mlff_network_init(int n_inputs, int n_outputs)
{
    return public_call<tavik_d_network *>(
        "tavik_d_mlff_network_init", [=](Workspace &workspace, tavik_d_network *&result) {
            datamining::l_mlff_network_init(n_inputs, n_outputs, workspace, result);
        });
}

void tavik_d_mlff_network(tavik_d_network *network, ...)
{
    ArgumentList list;
    va_start(list.arguments, network);
    public_call("tavik_d_mlff_network",
                [&](Workspace &workspace) { datamining::l_mlff_network(network, list, workspace); });
    va_end(list.arguments);
}

void tavik_d_mlff_network_free(tavik_d_network *network)
{
    public_call("tavik_d_mlff_network_free", [=](Workspace &) { datamining::free_network(network); });
}

} // extern "C"
