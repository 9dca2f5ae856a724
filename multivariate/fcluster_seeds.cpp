#include "cluster_seeds.hpp"
#include "frame/call.hpp"

using namespace tavik;

extern "C" float *tavik_f_cluster_seeds(int n_observations, int n_variables, const float x[], int n_clusters,
                                        ...)
{
    ArgumentList list;
    va_start(list.arguments, n_clusters);
    float *result = public_call<float *>("tavik_f_cluster_seeds", [&](Workspace &workspace, float *&seeds) {
        multivariate::l_cluster_seeds(n_observations, n_variables, x, n_clusters, list, workspace, seeds);
    });
    va_end(list.arguments);
    return result;
}
