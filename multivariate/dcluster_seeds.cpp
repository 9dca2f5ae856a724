#include "cluster_seeds.hpp"
#include "frame/call.hpp"

using namespace tavik;

extern "C" double *tavik_d_cluster_seeds(int n_observations, int n_variables, const double x[],
                                         int n_clusters, ...)
{
    ArgumentList list;
    va_start(list.arguments, n_clusters);
    double *result =
        public_call<double *>("tavik_d_cluster_seeds", [&](Workspace &workspace, double *&seeds) {
            multivariate::l_cluster_seeds(n_observations, n_variables, x, n_clusters, list, workspace, seeds);
        });
    va_end(list.arguments);
    return result;
}
