// A C++ program of a user's.
#include <tavikstat.h>

#include <cstdio>
#include <memory>

int main()
{
    const double x[] = {1, 2, 3, 4};
    const std::unique_ptr<double, decltype(&tavik_free)> statistics{
        tavik_d_simple_statistics(4, 1, x, TAVIK_MEDIAN, 0), &tavik_free};
    const bool sound = statistics && statistics.get()[0] == 2.5 && statistics.get()[14] == 2.5;
    std::puts(sound ? "sound" : "wrong");
    return sound ? 0 : 1;
}
