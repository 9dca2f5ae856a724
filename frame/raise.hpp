// An error and its parameters in one call.
#pragma once

#include "error.hpp"

namespace tavik {

// Parameters are numbered by their kind, in the order in which they are passed.
class ErrorParameters {
public:
    void add(int value)
    {
        tavik_e1sti(++integers_, value);
    }

    void add(double value)
    {
        tavik_e1std(++reals_, value);
    }

    // Must outlive the call that raises the error.
    void add(const char *value)
    {
        tavik_e1stl(++strings_, value);
    }

private:
    int integers_ = 0, reals_ = 0, strings_ = 0;
};

// False, as a check that fails.
template <class... Parameters> bool raise(int type, long code, Parameters... parameters)
{
    ErrorParameters all;
    (all.add(parameters), ...);
    tavik_ermes(type, code);
    return false;
}

} // namespace tavik
