#include "random_normal.hpp"

using namespace tavik;

extern "C" float *tavik_f_random_normal(int n_random, ...)
{
    ArgumentList list;
    va_start(list.arguments, n_random);
    float *result =
        public_call<float *>("tavik_f_random_normal", [&](Workspace &workspace, float *&deviates) {
            random::l_random_normal(n_random, list, workspace, deviates);
        });
    va_end(list.arguments);
    return result;
}
