// Selection of the thread's generator.
#include "frame/call.hpp"
#include "frame/error.hpp"
#include "generator_state.hpp"

using namespace tavik;

extern "C" {

void tavik_random_option(int generator_option)
{
    public_call("tavik_random_option", [=](Workspace &) {
        int position = 0;
        tavik_c1iarg(generator_option, "generator_option", random::congruential_16807,
                     random::mersenne_twister_64, &position);
        if (!error_pending()) random::generator_state(generator_option);
    });
}

int tavik_random_option_get(void)
{
    return public_call<int>("tavik_random_option_get", [](Workspace &, int &option) {
        if (const auto *state = random::generator_state(random::set_up_only)) option = state->record.option;
    });
}

} // extern "C"
