#include "call.hpp"
#include "tavikstat.h"

using namespace tavik;

// The frame alone creates the calling thread's state.
extern "C" int tavik_initialize(void)
{
    return public_call<int>("tavik_initialize", [](Workspace &, int &result) { result = 1; });
}
