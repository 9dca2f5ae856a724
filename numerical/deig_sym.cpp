#include "numerical/eig_sym.hpp"

using namespace tavik;

extern "C" double *tavik_d_eig_sym(int n, const double a[], ...)
{
    ArgumentList list;
    va_start(list.arguments, a);
    double *result = public_call<double *>("tavik_d_eig_sym", [&](Workspace &workspace, double *&values) {
        numerical::l_eig_sym(n, a, list, workspace, values);
    });
    va_end(list.arguments);
    return result;
}
