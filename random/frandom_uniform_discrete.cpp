#include "random_uniform_discrete.hpp"

using namespace tavik;

extern "C" int *tavik_f_random_uniform_discrete(int n_random, int k, ...)
{
    ArgumentList list;
    va_start(list.arguments, k);
    int *result =
        public_call<int *>("tavik_f_random_uniform_discrete", [&](Workspace &workspace, int *&integers) {
            random::l_random_uniform_discrete(n_random, k, list, workspace, integers);
        });
    va_end(list.arguments);
    return result;
}
