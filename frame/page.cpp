// The page size of a thread's printed results.

#include "call.hpp"
#include "checkers.hpp"

using namespace tavik;

namespace {

constexpr int least_size = 10;

thread_local int page_width = 78;
thread_local int page_length = 60;

void set_or_raise(int &size, int value, long error_code)
{
    if (value >= least_size) {
        size = value;
        return;
    }
    tavik_e1sti(1, value);
    tavik_ermes(terminal, error_code);
}

void l_page(int n, int *value)
{
    if (n < -2 || n > 2 || n == 0) {
        tavik_e1sti(1, n);
        tavik_ermes(terminal, 10020);
        return;
    }
    if (!check_not_null(value, "value")) return;
    switch (n) {
    case 1: *value = page_width; break;
    case 2: *value = page_length; break;
    case -1: set_or_raise(page_width, *value, 10021); break;
    default: set_or_raise(page_length, *value, 10022); break;
    }
}

} // namespace

extern "C" void tavik_page(int n, int *value)
{
    public_call("tavik_page", [=](Workspace &) { l_page(n, value); });
}
