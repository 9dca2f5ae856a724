#include "mlff_initialize_weights.hpp"

using namespace tavik;

extern "C" double *tavik_d_mlff_initialize_weights(tavik_d_network *network, int n_patterns, int n_nominal,
                                                   int n_continuous, const int nominal[],
                                                   const double continuous[], ...)
{
    ArgumentList list;
    va_start(list.arguments, continuous);
    double *result =
        public_call<double *>("tavik_d_mlff_initialize_weights", [&](Workspace &workspace, double *&weights) {
            datamining::Patterns<double> patterns{n_patterns, n_nominal, n_continuous, nominal, continuous};
            datamining::l_mlff_initialize_weights(network, patterns, list, workspace, weights);
        });
    va_end(list.arguments);
    return result;
}
