#include "frame/call.hpp"
#include "simple_statistics.hpp"

using namespace tavik;

extern "C" double *tavik_d_simple_statistics(int n_observations, int n_variables, const double x[], ...)
{
    ArgumentList list;
    va_start(list.arguments, x);
    double *result =
        public_call<double *>("tavik_d_simple_statistics", [&](Workspace &workspace, double *&statistics) {
            descriptive::l_simple_statistics(n_observations, n_variables, x, list, workspace, statistics);
        });
    va_end(list.arguments);
    return result;
}
