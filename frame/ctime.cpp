// CPU time of the process.

#include "call.hpp"
#include "tavikstat.h"

#include <sys/resource.h>

using namespace tavik;

extern "C" double tavik_ctime(void)
{
    return public_call<double>("tavik_ctime", [](Workspace &, double &result) {
        struct rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        result =
            static_cast<double>(usage.ru_utime.tv_sec) + 1e-6 * static_cast<double>(usage.ru_utime.tv_usec);
    });
}
