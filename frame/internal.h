/*
 * Internal routines that keep a C name: the error primitives, checkers and accessors that every folder of the
 * library uses. Exported under the symbol version TAVIKSTAT_PRIVATE, which gives no promise to callers.
 */
#ifndef TAVIKSTAT_INTERNAL_H
#define TAVIKSTAT_INTERNAL_H

#include "tavikstat.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    float re, im;
} tavik_c_complex;
typedef struct {
    double re, im;
} tavik_z_complex;

/* The calling thread's error state; see error_struct.hpp. */
struct tavik_error_struct;

struct random_common_structure;

/* ---- Raising errors ------------------------------------------------------------------------------------- */

/* Enter and leave a routine. The name is stored, not copied: pass a string literal. */
TAVIK_API void tavik_e1psh(const char *name);
TAVIK_API void tavik_e1pop(const char *name);

/* Record an error with the template that the message file holds for its code, or with a given one. */
TAVIK_API void tavik_ermes(int type, long code);
TAVIK_API void tavik_e1mes(int type, long code, const char *message_template);

/* Set parameter k (1 to 9) of the next message. Strings are not copied. */
TAVIK_API void tavik_e1sti(int k, int value);
TAVIK_API void tavik_e1str(int k, float value);
TAVIK_API void tavik_e1std(int k, double value);
TAVIK_API void tavik_e1stl(int k, const char *value);
TAVIK_API void tavik_e1stc(int k, tavik_c_complex value);
TAVIK_API void tavik_e1stz(int k, tavik_z_complex value);

/* Type and code: level 0 those pending in the running routine, level 1 those left by the last pop. */
TAVIK_API int tavik_n1rty(int level);
TAVIK_API long tavik_n1rcd(int level);

/* Bracket the call of a user's function: "ON" before it, "OFF" after it. */
TAVIK_API void tavik_e1usr(const char *onoff);

/* Get (negative type) or set the print and stop settings of a type; type 0 sets all of 1 to 7. */
TAVIK_API void tavik_e1pos(int type, int *print, int *stop);

TAVIK_API struct tavik_error_struct *tavik_err_init(void);
TAVIK_API struct tavik_error_struct *tavik_error_struct_get(void);

/* Give a worker thread of a parallel region the parent's error state, and merge it back. */
TAVIK_API void tavik_error_fork(struct tavik_error_struct *parent);
TAVIK_API void tavik_error_join(struct tavik_error_struct *parent);

/* ---- Argument checkers: each advances *position by one, whether the check passes or not ------------------- */

TAVIK_API void tavik_c1iarg(int value, const char *name, int lo, int hi, int *position);
TAVIK_API void tavik_c12ile(int value, const char *name, int limit, const char *limit_name, int *position);
TAVIK_API void tavik_c1ind(int lo, int value, const char *name, int limit, const char *limit_name,
                           int *position);
TAVIK_API void tavik_c1dim(int lo, int value, const char *name, int dimension, const char *dimension_name,
                           int *position);
TAVIK_API void tavik_c1ge0(const char *name, float x, int *position);
TAVIK_API void tavik_dc1ge0(const char *name, double x, int *position);
TAVIK_API void tavik_c1cip(const char *name, float percentage, int *position);
TAVIK_API void tavik_dc1cip(const char *name, double percentage, int *position);

/* a / b that gives an infinity, a NaN or 0 where the quotient would overflow or underflow. */
TAVIK_API float tavik_c1div(float a, float b);
TAVIK_API double tavik_dc1div(double a, double b);

/* ---- Signals, streams, units, constants ------------------------------------------------------------------- */

TAVIK_API void tavik_set_signal(int on);
TAVIK_API void tavik_flockfile(FILE *stream);
TAVIK_API void tavik_funlockfile(FILE *stream);

/* Unit 1 input, 2 output, 3 error: n = 1, 2, 3 reads it into *stream, n = -1, -2, -3 sets it. */
TAVIK_API void tavik_umach(int n, FILE **stream);

TAVIK_API float tavik_amach(int n);
TAVIK_API int tavik_imach(int n);

/* The eight constants of tavik_f_machine and tavik_d_machine. */
struct tavik_machine_table {
    float f[8];
    double d[8];
};
extern TAVIK_API const struct tavik_machine_table tavik_machine;

/* 0, 1, 2, ..., 10 and 0.5; complex 0 and 1. */
extern TAVIK_API const float tavik_F_NUMBER[12];
extern TAVIK_API const double tavik_D_NUMBER[12];
extern TAVIK_API const tavik_c_complex tavik_C_NUMBER[2];
extern TAVIK_API const tavik_z_complex tavik_Z_NUMBER[2];

/* ---- Random numbers ---------------------------------------------------------------------------------------- */

/* n >= 1 uniform deviates from the calling thread's generator. */
TAVIK_API void tavik_rnun(int n, float *r);
TAVIK_API void tavik_drnun(int n, double *r);

/* Set up the generator's state; then code -1 marks it as seeded, 0 seeds it from the clock unless it is seeded,
   and 1 to 9 select a generator. */
TAVIK_API void tavik_r1int(int code);

/* The seed that the clock gives now. */
TAVIK_API void tavik_r1clk(int *seed);

/* Fill the shuffle table from the seed. */
TAVIK_API void tavik_r1ins(void);
TAVIK_API void tavik_dr1ins(void);

/* The calling thread's generator state; see random/generator_state.hpp. Null, with an error, without memory. */
TAVIK_API struct random_common_structure *tavik_get_random_common_structure(void);

#ifdef __cplusplus
}
#endif

#endif /* TAVIKSTAT_INTERNAL_H */
