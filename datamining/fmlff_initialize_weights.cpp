#include "mlff_initialize_weights.hpp"

using namespace tavik;

extern "C" float *tavik_f_mlff_initialize_weights(tavik_f_network *network, int n_patterns, int n_nominal,
                                                  int n_continuous, const int nominal[],
                                                  const float continuous[], ...)
{
    ArgumentList list;
    va_start(list.arguments, continuous);
    float *result =
        public_call<float *>("tavik_f_mlff_initialize_weights", [&](Workspace &workspace, float *&weights) {
            datamining::Patterns<float> patterns{n_patterns, n_nominal, n_continuous, nominal, continuous};
            datamining::l_mlff_initialize_weights(network, patterns, list, workspace, weights);
        });
    va_end(list.arguments);
    return result;
}
