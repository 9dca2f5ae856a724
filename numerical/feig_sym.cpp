#include "numerical/eig_sym.hpp"

using namespace tavik;

extern "C" float *tavik_f_eig_sym(int n, const float a[], ...)
{
    ArgumentList list;
    va_start(list.arguments, a);
    float *result = public_call<float *>("tavik_f_eig_sym", [&](Workspace &workspace, float *&values) {
        numerical::l_eig_sym(n, a, list, workspace, values);
    });
    va_end(list.arguments);
    return result;
}
