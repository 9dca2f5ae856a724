// Properties of the number formats: the real tables by index, the integer tables, and the small numbers.

#include "call.hpp"
#include "checkers.hpp"
#include "precision.hpp"

#include <limits>

using namespace tavik;

namespace {

constexpr long integer_table[13] = {8,    2,   15, 32767, 63,  9223372036854775807, 2, 24,
                                    -125, 128, 53, -1021, 1024};
constexpr int internal_table[12] = {32, 4, 2, 31, 2147483647, 2, 24, -125, 128, 53, -1021, 1024};

constexpr int n_real_constants = 8;

template <class Real> void l_machine(const Real (&table)[n_real_constants], int n, Real &result)
{
    if (n >= 1 && n <= n_real_constants) {
        result = table[n - 1];
        return;
    }
    set_range_parameters(1, n_real_constants, n, "n");
    raise_in_level("l_machine", terminal, 132);
}

} // namespace

extern "C" {

const struct tavik_machine_table tavik_machine = {
    {0x1p-126f, 0x1.fffffep+127f, 0x1p-24f, 0x1p-23f, 0.30103001f, not_a_number<float>,
     std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()},
    {0x1p-1022, 0x1.fffffffffffffp+1023, 0x1p-53, 0x1p-52, 0.30102998001990605, not_a_number<double>,
     std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}};

const float tavik_F_NUMBER[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0.5f};
const double tavik_D_NUMBER[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0.5};
const tavik_c_complex tavik_C_NUMBER[2] = {{0, 0}, {1, 0}};
const tavik_z_complex tavik_Z_NUMBER[2] = {{0, 0}, {1, 0}};

float tavik_f_machine(int n)
{
    return public_call<float>("tavik_f_machine",
                              [=](Workspace &, float &result) { l_machine(tavik_machine.f, n, result); });
}

double tavik_d_machine(int n)
{
    return public_call<double>("tavik_d_machine",
                               [=](Workspace &, double &result) { l_machine(tavik_machine.d, n, result); });
}

long tavik_i_machine(int n)
{
    return public_call<long>("tavik_i_machine", [=](Workspace &, long &result) {
        if (n >= 0 && n <= 12) {
            result = integer_table[n];
        } else {
            set_range_parameters(0, 12, n, "n");
            tavik_ermes(terminal, 132);
        }
    });
}

float tavik_amach(int n)
{
    if (n >= 1 && n <= n_real_constants) return tavik_machine.f[n - 1];
    tavik_e1psh("tavik_amach");
    tavik_e1sti(1, n);
    tavik_ermes(terminal, 12009);
    tavik_e1pop("tavik_amach");
    return 0;
}

int tavik_imach(int n)
{
    if (n >= 1 && n <= 12) return internal_table[n - 1];
    set_range_parameters(1, 12, n, "n");
    tavik_ermes(terminal, 132);
    return 8;
}

} // extern "C"
