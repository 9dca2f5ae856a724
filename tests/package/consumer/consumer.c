/* A C program of a user's: it calls a statistical routine and reads a message of the message file. */
#include <tavikstat.h>

#include <stdio.h>
#include <string.h>

int main(void)
{
    const float x[] = {1, 2, 3, 4};
    float *statistics = tavik_f_simple_statistics(4, 1, x, TAVIK_CONFIDENCE_MEAN, 90.0, 0);
    char *message;
    int sound = statistics != NULL && statistics[0] == 2.5F && statistics[9] == 4;
    tavik_free(statistics);

    tavik_error_options(TAVIK_SET_STOP, TAVIK_TERMINAL, 0, TAVIK_SET_PRINT, TAVIK_TERMINAL, 0, 0);
    sound = sound && tavik_f_simple_statistics(0, 1, x, 0) == NULL && tavik_error_code() == 603;
    message = tavik_error_message();
    sound = sound && message != NULL && strstr(message, "n_observations") != NULL;
    printf("%s: %s\n", sound ? "sound" : "wrong", message != NULL ? message : "no message");
    tavik_free(message);
    return sound ? 0 : 1;
}
