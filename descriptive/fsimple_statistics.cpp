#include "frame/call.hpp"
#include "simple_statistics.hpp"

using namespace tavik;

extern "C" float *tavik_f_simple_statistics(int n_observations, int n_variables, const float x[], ...)
{
    ArgumentList list;
    va_start(list.arguments, x);
    float *result =
        public_call<float *>("tavik_f_simple_statistics", [&](Workspace &workspace, float *&statistics) {
            descriptive::l_simple_statistics(n_observations, n_variables, x, list, workspace, statistics);
        });
    va_end(list.arguments);
    return result;
}
