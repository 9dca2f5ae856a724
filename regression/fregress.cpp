#include "frame/call.hpp"
#include "regress.hpp"

using namespace tavik;

extern "C" float *tavik_f_regression(int n_rows, int n_independent, const float x[], const float y[], ...)
{
    ArgumentList list;
    va_start(list.arguments, y);
    float *result =
        public_call<float *>("tavik_f_regression", [&](Workspace &workspace, float *&coefficients) {
            regression::l_regression(n_rows, n_independent, x, y, list, workspace, coefficients);
        });
    va_end(list.arguments);
    return result;
}
