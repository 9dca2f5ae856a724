#include "frame/call.hpp"
#include "regress.hpp"

using namespace tavik;

extern "C" double *tavik_d_regression(int n_rows, int n_independent, const double x[], const double y[], ...)
{
    ArgumentList list;
    va_start(list.arguments, y);
    double *result =
        public_call<double *>("tavik_d_regression", [&](Workspace &workspace, double *&coefficients) {
            regression::l_regression(n_rows, n_independent, x, y, list, workspace, coefficients);
        });
    va_end(list.arguments);
    return result;
}
