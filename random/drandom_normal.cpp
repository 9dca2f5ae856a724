#include "random_normal.hpp"

using namespace tavik;

extern "C" double *tavik_d_random_normal(int n_random, ...)
{
    ArgumentList list;
    va_start(list.arguments, n_random);
    double *result =
        public_call<double *>("tavik_d_random_normal", [&](Workspace &workspace, double *&deviates) {
            random::l_random_normal(n_random, list, workspace, deviates);
        });
    va_end(list.arguments);
    return result;
}
