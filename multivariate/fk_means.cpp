#include "frame/call.hpp"
#include "k_means.hpp"

using namespace tavik;

extern "C" int *tavik_f_cluster_k_means(int n_observations, int n_variables, const float x[], int n_clusters,
                                        const float cluster_seeds[], ...)
{
    ArgumentList list;
    va_start(list.arguments, cluster_seeds);
    int *result = public_call<int *>("tavik_f_cluster_k_means", [&](Workspace &workspace, int *&membership) {
        multivariate::l_cluster_k_means(n_observations, n_variables, x, n_clusters, cluster_seeds, list,
                                        workspace, membership);
    });
    va_end(list.arguments);
    return result;
}
