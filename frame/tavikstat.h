/*
 * libtavikstat: statistics and data analysis for C and C++.
 *
 * Every statistical routine exists as tavik_f_NAME (float data) and tavik_d_NAME (double data). Required
 * arguments come first; options follow as groups of a code and its values, and 0 closes the list:
 *
 *     double *stats = tavik_d_simple_statistics(n, p, x, TAVIK_CONFIDENCE_MEAN, 99.0, 0);
 *     ...
 *     tavik_free(stats);
 *
 * Conventions that hold for every routine, unless its comment says otherwise:
 *
 *   - Matrices are stored by rows. A missing value is NaN.
 *   - An option named ..._USER takes an array of the caller's and writes into it. Its twin without _USER takes
 *     the address of a pointer, sets it to NULL at once, and stores a new array there on success.
 *   - A `float` value in an option list is passed as a double, as C does by itself.
 *   - Every array that a routine returns or stores through a pointer is released with tavik_free.
 *   - A routine that cannot finish returns NULL (or 0), and nothing stays allocated. What went wrong is printed
 *     and kept: see tavik_error_type, tavik_error_code, tavik_error_message. By default an error of type 4, 5 or
 *     8 ends the process with the type as exit status; tavik_error_options changes that.
 *   - All state (errors, units, page size, staged computations, random generators) belongs to the calling thread,
 *     so any number of threads may call any routine at the same time. State frees itself when its thread ends.
 *
 * Errors named below as "5, 603" are type 5, code 603. Errors that every routine may raise are not repeated:
 * 5, 11001 (5, 103 in the frame's own routines) for an unknown option code, 5, 150 for a NULL pointer where an
 * array or variable is needed, 5, 200 and 5, 201 when memory is exhausted, 5, 102 after a trapped signal.
 */
#ifndef TAVIKSTAT_H
#define TAVIKSTAT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__)
#define TAVIK_API __attribute__((visibility("default")))
#else
#define TAVIK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Option codes. A code means the same option in every routine that takes it. */
enum tavik_option {
    TAVIK_A_COL_DIM = 10010,
    TAVIK_ANOVA_TABLE = 10080,
    TAVIK_ANOVA_TABLE_USER = 10090,
    TAVIK_CLUSTER_OUTPUT_A = 10640,
    TAVIK_CLUSTER_MEANS = 10640,
    TAVIK_CLUSTER_OUTPUT_B = 10660,
    TAVIK_CLUSTER_SSQ = 10660,
    TAVIK_CLUSTER_OUTPUT_B_USER = 10670,
    TAVIK_CLUSTER_SSQ_USER = 10670,
    TAVIK_REGRESSION_SQUARE_OUTPUT = 10690,
    TAVIK_COEF_COVARIANCES = 10690,
    TAVIK_REGRESSION_SQUARE_OUTPUT_USER = 10700,
    TAVIK_COEF_COVARIANCES_USER = 10700,
    TAVIK_COMPILER_VERSION = 10780,
    TAVIK_CONFIDENCE_MEAN = 10880,
    TAVIK_CONFIDENCE_MEAN_ADR = 10890,
    TAVIK_CONFIDENCE_VARIANCE = 10910,
    TAVIK_CONFIDENCE_VARIANCE_ADR = 10920,
    TAVIK_REGRESSION_SQUARE_COL_DIM = 11055,
    TAVIK_COV_COL_DIM = 11055,
    TAVIK_ERROR_MSG_NAME = 11400,
    TAVIK_ERROR_MSG_PATH = 11410,
    TAVIK_ERROR_PRINT_PROC = 11420,
    TAVIK_FREQUENCIES = 11790,
    TAVIK_FULL_TRACEBACK = 11850,
    TAVIK_GET_ERROR_FILE = 11970,
    TAVIK_GET_OUTPUT_FILE = 11980,
    TAVIK_GET_PRINT = 11990,
    TAVIK_GET_STOP = 12000,
    TAVIK_GET_TRACEBACK = 12010,
    TAVIK_INTERCEPT = 12400,
    TAVIK_LIBRARY_VERSION = 12760,
    TAVIK_MAX_ITERATIONS = 12970,
    TAVIK_MEDIAN = 13150,
    TAVIK_MEDIAN_AND_SCALE = 13160,
    TAVIK_METHOD = 13170,
    TAVIK_NO_INTERCEPT = 13350,
    TAVIK_OS_VERSION = 13630,
    TAVIK_PRINT = 13900,
    TAVIK_REGRESSION_INT_OUTPUT_A = 14110,
    TAVIK_RANK = 14110,
    TAVIK_REGRESSION_OUTPUT_F = 14140,
    TAVIK_COEF_STATISTICS = 14140,
    TAVIK_REGRESSION_OUTPUT_B = 14190,
    TAVIK_RESIDUALS = 14190,
    TAVIK_REGRESSION_OUTPUT_B_USER = 14220,
    TAVIK_RESIDUALS_USER = 14220,
    TAVIK_RETURN_USER = 14280,
    TAVIK_SET_ERROR_FILE = 14490,
    TAVIK_SET_OUTPUT_FILE = 14510,
    TAVIK_SET_PRINT = 14520,
    TAVIK_SET_STOP = 14530,
    TAVIK_SET_TRACEBACK = 14540,
    TAVIK_STAT_COL_DIM = 14800,
    TAVIK_TOLERANCE = 15040,
    TAVIK_TOLERANCE_ADR = 15050,
    TAVIK_VECTORS = 15310,
    TAVIK_VECTORS_USER = 15320,
    TAVIK_WEIGHTS = 15400,
    TAVIK_X_COL_DIM = 15470,
    TAVIK_REGRESSION_OUTPUT_C = 15490,
    TAVIK_VARIABLE_MEANS = 15490,
    TAVIK_REGRESSION_OUTPUT_C_USER = 15500,
    TAVIK_VARIABLE_MEANS_USER = 15500,
    TAVIK_CLUSTER_SEEDS_COL_DIM = 15720,
    TAVIK_CLUSTER_MEANS_COL_DIM = 15730,
    TAVIK_CLUSTER_OUTPUT_A_USER = 15740,
    TAVIK_CLUSTER_MEANS_USER = 15740,
    TAVIK_CLUSTER_VARIABLES = 15750,
    TAVIK_CLUSTER_OUTPUT_C = 15760,
    TAVIK_CLUSTER_COUNTS = 15760,
    TAVIK_CLUSTER_OUTPUT_C_USER = 15770,
    TAVIK_CLUSTER_COUNTS_USER = 15770,
    TAVIK_CLUSTER_TRIALS = 15780,
    TAVIK_SIGNAL_TRAPPING = 16042,
    TAVIK_REGRESSION_OUTPUT_D = 16068,
    TAVIK_R_FACTOR = 16068,
    TAVIK_REGRESSION_OUTPUT_D_USER = 16069,
    TAVIK_R_FACTOR_USER = 16069,
    TAVIK_REGRESSION_INT_OUTPUT_B = 16071,
    TAVIK_N_ROWS_MISSING = 16071,
    TAVIK_MISSING_MODE_0 = 18010,
    TAVIK_MISSING_ELEMENTWISE = 18010,
    TAVIK_MISSING_MODE_1 = 18011,
    TAVIK_MISSING_LISTWISE = 18011,
    TAVIK_REGRESSION_USER_ARRAY_H = 20400,
    TAVIK_LEVERAGES_USER = 20400,
    TAVIK_MEAN = 20410,
    TAVIK_MEAN_ADR = 20415,
    TAVIK_VARIANCE = 20420,
    TAVIK_VARIANCE_ADR = 20425,
    TAVIK_ACCEPT_REJECT = 20430,
    TAVIK_IDO = 20440,
    TAVIK_REGRESSION_MODE_ON = 20441,
    TAVIK_ROWS_ADD = 20441,
    TAVIK_REGRESSION_MODE_OFF = 20442,
    TAVIK_ROWS_DELETE = 20442,
    TAVIK_X_INDICES = 20443,
    TAVIK_REGRESSION_SWITCH_OFF = 20880,
    TAVIK_KEEP_MISSING = 20880,
    TAVIK_REGRESSION_SWITCH_ON = 20890,
    TAVIK_EXCLUDE_MISSING = 20890,
    TAVIK_N_DEPENDENT = 20900,
    TAVIK_REGRESSION_OUTPUT_E = 20930,
    TAVIK_ERROR_CROSSPRODUCTS = 20930,
    TAVIK_REGRESSION_OUTPUT_E_USER = 20940,
    TAVIK_ERROR_CROSSPRODUCTS_USER = 20940,
    TAVIK_CREATE_HIDDEN_LAYER = 40600,
    TAVIK_ACTIVATION_FCN = 40601,
    TAVIK_BIAS = 40602,
    TAVIK_LINK_ALL = 40603,
    TAVIK_LINK_NODE = 40604,
    TAVIK_LINK_LAYER = 40605,
    TAVIK_REMOVE_LINK = 40606,
    TAVIK_N_LINKS = 40607,
    TAVIK_PRINT_NETWORK = 40608,
    TAVIK_CLASSIFICATION = 40611,
    TAVIK_FILE = 40621,
    TAVIK_ERROR_HANDLER_ID = 50000,
    TAVIK_ZIGGURAT = 50629,
    TAVIK_GET_SINGLE_THREADED_LINEAR_ALGEBRA = 50633,
    TAVIK_SET_SINGLE_THREADED_LINEAR_ALGEBRA = 50634,
    TAVIK_SET_FUNCTIONS_THREAD_SAFE = 50741,
    TAVIK_GET_FUNCTIONS_THREAD_SAFE = 50742,
    TAVIK_CLUSTER_HISTORY = 50983,
    TAVIK_CLUSTER_HISTORY_USER = 50984,
    TAVIK_REGRESSION_POINTER_I = 53013,
    TAVIK_FIT_POINTER = 53013
};

/* Error types: how severe an error is. The defaults can be changed with tavik_error_options. */
enum tavik_error_type_value {
    TAVIK_NOTE = 1,              /* not printed */
    TAVIK_ALERT = 2,             /* not printed */
    TAVIK_WARNING = 3,           /* printed when the routine that the caller called returns */
    TAVIK_FATAL = 4,             /* printed at that return, then the process stops */
    TAVIK_TERMINAL = 5,          /* printed at once; the process stops at that return */
    TAVIK_WARNING_IMMEDIATE = 6, /* printed at once */
    TAVIK_FATAL_IMMEDIATE = 7    /* printed at once */
};

/* ------------------------------------------------------------------------------------------------------------
 * Errors
 * --------------------------------------------------------------------------------------------------------- */

/**
 * Prints one error in place of the library's own printer. Called with the error's type and code, the name of
 * the routine that raised it, and the finished message. The strings are valid during the call only. The procedure
 * may call the library; the error that it is told of stays the one that the caller finds afterwards.
 */
typedef void (*tavik_print_proc)(int type, long code, const char *routine, const char *message);

/**
 * Is told of every error that is reported, before it is printed. Both strings are the same message. An error of
 * an immediate type is seen twice: with its message when it is raised, with an empty one when the call returns.
 */
typedef void (*tavik_error_hook)(int type, long code, const char *message, const char *same_message);

/**
 * Type of the error that the calling thread's last library call left, or 0 when it succeeded.
 * Thread behaviour: reads the calling thread's state only.
 */
TAVIK_API int tavik_error_type(void);

/** Code of the error that the calling thread's last library call left, or 0 when it succeeded. */
TAVIK_API long tavik_error_code(void);

/**
 * The text of the error that the calling thread's last library call left.
 *
 * @return a new string, released with tavik_free; NULL when that call succeeded.
 * Errors: 5, 200 when the copy cannot be allocated (NULL is returned).
 *
 *     if (tavik_error_type() != 0) {
 *         char *text = tavik_error_message();
 *         fprintf(log, "%ld: %s\n", tavik_error_code(), text);
 *         tavik_free(text);
 *     }
 */
TAVIK_API char *tavik_error_message(void);

/**
 * Reads and sets what happens when an error of a given type is reported, for the calling thread.
 *
 * @param code  first option code; the list is closed by 0. Options act in the order of the list, once the whole
 *              list has been read.
 *
 * Options (`type` is an error type, 1 to 7):
 *   TAVIK_SET_PRINT, int type, int flag            print errors of this type (1) or not (0)
 *   TAVIK_SET_STOP, int type, int flag             end the process after errors of this type
 *   TAVIK_SET_TRACEBACK, int type, int flag        print the calling sequence after errors of this type
 *   TAVIK_GET_PRINT, int type, int *flag           read these settings
 *   TAVIK_GET_STOP, int type, int *flag
 *   TAVIK_GET_TRACEBACK, int type, int *flag
 *   TAVIK_FULL_TRACEBACK, int flag                 tracebacks list inner routines, too
 *   TAVIK_SET_ERROR_FILE, FILE *stream             where messages go (default: standard error)
 *   TAVIK_GET_ERROR_FILE, FILE **stream            read that stream
 *   TAVIK_ERROR_PRINT_PROC, tavik_print_proc proc  print with this procedure; NULL restores the library's own
 *   TAVIK_ERROR_MSG_PATH, char *path               folders in which the message file is searched, separated by
 *                                                  ':', each ending in '/' (copied; NULL: the default path)
 *   TAVIK_ERROR_MSG_NAME, char *name               name of the message file (copied; kept for information: the
 *                                                  file that is opened is always tavik_e.bin)
 *   TAVIK_SIGNAL_TRAPPING, int flag                turn an illegal instruction or a segmentation fault inside a
 *                                                  routine into an error (5, 102) instead of the process's end.
 *                                                  Process-wide, and for single-threaded programs only
 *   TAVIK_ERROR_HANDLER_ID, int *id                stores the identification number of the error handler, 50020
 *
 * Errors: 5, 132 `type` outside 1 to 7 (that option has no effect); 5, 103 unknown code (no option acts);
 * 5, 200 a string cannot be copied.
 *
 *     tavik_error_options(TAVIK_SET_STOP, TAVIK_TERMINAL, 0, TAVIK_SET_PRINT, TAVIK_TERMINAL, 0, 0);
 */
TAVIK_API void tavik_error_options(int code, ...);

/**
 * Installs a procedure that is told of every error of every thread; NULL removes it. The only setting of the
 * error handler that is process-wide: the procedure may be called by several threads at once.
 */
TAVIK_API void tavik_set_at_checksum(tavik_error_hook hook);

/**
 * Raises an error on purpose, to see how errors are reported: code 108, at a depth of nested routines.
 *
 * @param type   1 to 7.
 * @param depth  0 to 3.
 * Values outside print a line on standard error and do nothing else.
 */
TAVIK_API void tavik_internal_generate_error(int type, int depth);

/**
 * Creates the calling thread's error state now rather than in its first library call.
 *
 * @return 0, or 1 when there is no memory for it.
 */
TAVIK_API int tavik_initialize_error_handler(void);

/**
 * Releases the tables of the message file and the error state of the calling thread and of the idle threads that
 * the OpenMP runtime keeps. Error settings return to their defaults. A thread that is inside a library call keeps
 * its state. No other thread may be inside the library.
 */
TAVIK_API void tavik_free_error_handlers(void);

/**
 * Tells the routine that is calling a function of yours that this function failed. Called from inside that
 * function; the routine then raises 4, 12116 with the value.
 *
 * @param value  0 to 255 (stored in 8 bits).
 */
TAVIK_API void tavik_set_user_fcn_return_flag(int value);

/** Is signal trapping on? See TAVIK_SIGNAL_TRAPPING of tavik_error_options. */
TAVIK_API int tavik_signal_trap_status(void);

/** Turns signal trapping off, also when every other call is refused with 4, 499. */
TAVIK_API void tavik_skip_signal_handler(void);

/* ------------------------------------------------------------------------------------------------------------
 * Start, memory
 * --------------------------------------------------------------------------------------------------------- */

/** Creates the calling thread's state outside any computation. @return 1. */
TAVIK_API int tavik_initialize(void);

/** Releases memory that the library returned. NULL is ignored. */
TAVIK_API void tavik_free(void *pointer);

/** Memory from the library's allocator, which is malloc. NULL on failure, without an error. */
TAVIK_API void *tavik_malloc_internal(size_t size);

/** Memory aligned to 64 bytes. A size of 0 counts as 1. @return NULL on failure, without an error. */
TAVIK_API void *tavik_aligned_malloc(size_t size);

/** Releases memory of the aligned allocators. NULL is ignored. */
TAVIK_API void tavik_aligned_free(void *pointer);

/**
 * An n-by-m array aligned to 64 bytes whose rows are padded to whole 64-byte lines, so that the row stride is
 * tavik_i_omp_roundup(m) (tavik_f_..., tavik_d_...). Released with tavik_aligned_free.
 *
 * @return NULL when n or m is negative, when the size in bytes overflows, or when memory is exhausted.
 */
TAVIK_API int *tavik_i_aligned_malloc(int n, int m);
TAVIK_API float *tavik_f_aligned_malloc(int n, int m);
TAVIK_API double *tavik_d_aligned_malloc(int n, int m);

/**
 * m rounded up to a whole number of 64-byte lines: to a multiple of 16 (int, float) or 8 (double). An m within
 * a line of the largest int, which cannot be rounded up, is rounded down.
 */
TAVIK_API int tavik_i_omp_roundup(int m);
TAVIK_API int tavik_f_omp_roundup(int m);
TAVIK_API int tavik_d_omp_roundup(int m);

/**
 * The calling thread's memory option, a number that the library keeps for the caller.
 *
 * @param set    0: return the value; otherwise store `value` and return it.
 */
TAVIK_API int tavik_malloc_option(int set, int value);

/**
 * Releases what the library holds between calls: all state of the calling thread, an open staged computation
 * included, and what tavik_free_error_handlers releases.
 */
TAVIK_API void tavik_free_allocated_memory(void);

/* ------------------------------------------------------------------------------------------------------------
 * Threads
 * --------------------------------------------------------------------------------------------------------- */

/**
 * Reads and sets the process-wide controls of multi-threaded work. The number of threads itself is OpenMP's
 * (OMP_NUM_THREADS); no result depends on it.
 *
 * @param code  first option code; the list is closed by 0.
 *
 * Options:
 *   TAVIK_SET_FUNCTIONS_THREAD_SAFE, int flag           functions that you pass may be called from several
 *                                                       threads at once (default 0)
 *   TAVIK_GET_FUNCTIONS_THREAD_SAFE, int *flag
 *   TAVIK_SET_SINGLE_THREADED_LINEAR_ALGEBRA, int flag  linear algebra runs on one thread (default 1)
 *   TAVIK_GET_SINGLE_THREADED_LINEAR_ALGEBRA, int *flag
 *
 * Errors: 5, 103 unknown code (the options before it still act).
 */
TAVIK_API void tavik_omp_options(int code, ...);

/* ------------------------------------------------------------------------------------------------------------
 * Machine constants, version, units, files, time
 * --------------------------------------------------------------------------------------------------------- */

/**
 * Properties of the floating-point formats.
 *
 * @param n  1 smallest positive normalised number, 2 largest number, 3 half the epsilon (2^-24, 2^-53),
 *           4 the epsilon (2^-23, 2^-52), 5 log10(2), 6 NaN, 7 infinity, 8 minus infinity.
 * Errors: 5, 132 another n (0 is returned).
 */
TAVIK_API float tavik_f_machine(int n);
TAVIK_API double tavik_d_machine(int n);

/**
 * Properties of the number formats, as integers.
 *
 * @param n  0 bits per character, 1 base of the integers, 2 binary digits of a short, 3 largest short, 4 binary
 *           digits of a long, 5 largest long, 6 base of the floating-point numbers; 7, 8, 9 digits, smallest and
 *           largest exponent of float; 10, 11, 12 the same of double.
 * Errors: 5, 132 another n (0 is returned).
 */
TAVIK_API long tavik_i_machine(int n);

/**
 * Version texts.
 *
 * @param code  TAVIK_LIBRARY_VERSION, TAVIK_COMPILER_VERSION or TAVIK_OS_VERSION. The texts come from the
 *              environment variables ZEP_VERSION, ZEP_COMPILER_VERSION and ZEP_OS_VERSION.
 * @return a new string, empty when the variable is not set; released with tavik_free. NULL on error.
 * Errors: 5, 103 another code; 5, 200.
 */
TAVIK_API char *tavik_version(int code);

/**
 * Reads and sets the calling thread's output unit (printed results) and error unit (messages).
 *
 * @param code  first option code; the list is closed by 0.
 *
 * Options:
 *   TAVIK_SET_OUTPUT_FILE, FILE *stream    default: standard output
 *   TAVIK_GET_OUTPUT_FILE, FILE **stream
 *   TAVIK_SET_ERROR_FILE, FILE *stream     default: standard error
 *   TAVIK_GET_ERROR_FILE, FILE **stream
 *
 * The stream stays the caller's and must stay open while it is set. Errors: 5, 103 unknown code (no option acts).
 */
TAVIK_API void tavik_output_file(int code, ...);

/**
 * Reads and sets the calling thread's page size for printed results.
 *
 * @param n      1 read the width, 2 read the length, -1 set the width, -2 set the length.
 * @param value  width in characters (default 78) or length in lines (default 60); at least 10 to be set.
 * Errors: 5, 10020 another n; 5, 10021 a width, 5, 10022 a length of 9 or less (the setting stays).
 */
TAVIK_API void tavik_page(int n, int *value);

/**
 * fopen of the C runtime that the library itself uses. NULL when the file cannot be opened (errno says why).
 * Errors: 5, 65371 no name; 5, 150 no mode.
 */
TAVIK_API FILE *tavik_fopen(const char *name, const char *mode);

/** fclose of that runtime. Errors: 5, 150 no file (-1 is returned). */
TAVIK_API int tavik_fclose(FILE *file);

/** User CPU time of the process, in seconds. */
TAVIK_API double tavik_ctime(void);

/* ------------------------------------------------------------------------------------------------------------
 * Descriptive statistics
 * --------------------------------------------------------------------------------------------------------- */

/**
 * Basic univariate statistics of each column of a data matrix.
 *
 * @param n_observations  number of rows, at least 1 (at least 0 in stages).
 * @param n_variables     number of columns, at least 1.
 * @param x               n_observations x n_variables values, by rows. NaN is a missing value.
 *
 * @return R rows x n_variables columns, by rows; a new array, released with tavik_free. NULL on error, and for
 *         stages 1 and 2. R is 14, 15 with TAVIK_MEDIAN, 17 with TAVIK_MEDIAN_AND_SCALE:
 *
 *          1 mean                  6 minimum                    11, 12 confidence limits of the mean
 *          2 variance              7 maximum                    13, 14 confidence limits of the variance
 *          3 standard deviation    8 range                      15 median
 *          4 skewness              9 coefficient of variation   16 median absolute deviation from the median
 *          5 excess kurtosis      10 count                      17 robust scale: row 16 / 0.6745
 *
 *         The count is the sum of the frequencies of the values used. The median of an even number of values is
 *         the mean of the middle two; medians take each value once, whatever its frequency and weight. A statistic
 *         that is not defined, or not asked for, is NaN. An infinite value makes the mean infinite (NaN when both
 *         infinities occur) and the moments NaN. Where a power of the deviations overflows a double (the fourth
 *         from about 1e77 on), the statistics that rest on it are infinite or NaN.
 *
 * Options:
 *   TAVIK_CONFIDENCE_MEAN, double level           level in percent of the limits of the mean; default 95, below
 *   TAVIK_CONFIDENCE_MEAN_ADR, Real *level        100; 0 or less: no limits (NaN). _ADR passes it by address
 *   TAVIK_CONFIDENCE_VARIANCE, double level       the same for the variance
 *   TAVIK_CONFIDENCE_VARIANCE_ADR, Real *level
 *   TAVIK_FREQUENCIES, const Real f[]             case frequencies, one a row: finite and not negative. A row of
 *                                                 frequency f counts as f equal rows, one of 0 not at all
 *   TAVIK_WEIGHTS, const Real w[]                 case weights, one a row: finite and not negative. A row of weight
 *                                                 0 counts in the count and the extremes only
 *   TAVIK_MEDIAN                                  adds row 15; excludes the next option and staged processing
 *   TAVIK_MEDIAN_AND_SCALE                        adds rows 15 to 17
 *   TAVIK_MISSING_ELEMENTWISE                     leave out a missing element only (the default)
 *   TAVIK_MISSING_LISTWISE                        leave out the whole row when one of its elements is missing
 *   TAVIK_RETURN_USER, Real result[]              write the result here (untouched on error) and return it
 *   TAVIK_STAT_COL_DIM, int                       row stride of the result; default n_variables
 *   TAVIK_X_COL_DIM, int                          row stride of x; default n_variables
 *   TAVIK_IDO, int stage                          0 all data in this call (default); 1 first, 2 intermediate,
 *                                                 3 last call of a series. The series belongs to the thread
 *
 * Warnings (type 6, printed at once; the result is returned; i = the variable, from 1, where one is concerned):
 *   11062, 11288  missing values were left out (elementwise, listwise)
 *   11067  no variable has more than one observation    11072  variable i has not
 *   11068  the weights of all variables vanish          11069  those of variable i do
 *   11073, 11074, 11075  range of i too small for rows 2 to 5, rows 4 and 5, row 5
 *   11076  all values of i are equal: rows 2 to 5 are 0
 *   11077  values of i differ, but their second moment vanished: rows 4 and 5 are NaN
 *   11078  coefficient of variation of i is not defined
 *   11079, 11080, 11081, 11082  no confidence limits of the mean (variance) of i
 *
 * Errors:
 *   5, 603    n_variables or a stride below 1; n_observations below 1 (0 in stages)
 *   5, 602    stage outside 0 to 3            5, 601    a stride below n_variables
 *   5, 11064  level of the mean is 100 or more          5, 11065  level of the variance
 *   5, 11117  two median options                        5, 11426  a median option in stages
 *   4, 11055  negative or infinite frequency or weight (4, 11054 in stages)
 *   4, 20691  stage 2 or 3 without a series             4, 20692  stage 0 or 1 inside one
 *   4, 11428  another n_variables than the series has
 *   Any error of type 4 or 5 in a call ends the open series of the thread and element type.
 *
 * Accuracy: moments are accumulated in double in both variants, by blocks of rows that are centred on their own
 * mean and merged with the pairwise formulas (Chan, Golub, LeVeque 1979; Pebay 2008, SAND2008-6212). Speed: one
 * pass over x, on several threads for large data. Memory besides input and result, whatever n_observations is:
 * 80 bytes a variable, and for each thread up to some hundred KiB and 700 bytes a variable; the median options
 * take one column a thread.
 * Results do not depend on the number of threads, and staged calls whose stages are multiples of 4096 rows give
 * the bits of one call.
 *
 *     double x[] = {1, 2, 3, 4}, *s = tavik_d_simple_statistics(4, 1, x, 0);
 *     printf("mean %g, standard deviation %g\n", s[0], s[2]);
 *     tavik_free(s);
 */
TAVIK_API float *tavik_f_simple_statistics(int n_observations, int n_variables, const float x[], ...);
TAVIK_API double *tavik_d_simple_statistics(int n_observations, int n_variables, const double x[], ...);

/* ------------------------------------------------------------------------------------------------------------
 * Random numbers
 *
 * Every thread has a generator of its own, with its own seed and tables; nothing is shared, and nothing is
 * locked. All random routines draw from it. A stream depends on the generator and its seed or tables alone: not
 * on how draws are cut into calls, on the processor, or on the number of threads. (One exception: in a thread
 * whose very first random call is tavik_random_option(7), generator 7 in double scales by 2^-31, in others by
 * 1/(2^31 - 1), and first fills of shuffle tables likewise. To repeat a stream, begin in the same way.)
 *
 *   generator  kind                                                             period    saved and restored by
 *   1, 3, 5    multiplicative congruential, modulus 2^31 - 1, multipliers       2^31 - 2  seed
 *              16807, 397204094, 950706376
 *   2, 4, 6    the same, shuffled through a table of 128 slots                  -         seed and shuffle table
 *   7          GFSR (feedback shift register), lags 1563 and 96                 > 2^520   GFSR table
 *   8          Mersenne Twister MT19937                                         2^19937-1 MT32 table
 *   9          Mersenne Twister MT19937-64                                      2^19937-1 MT64 table
 *
 * Generator 1 is selected at first, for repeatability with programs that use it. Prefer 8 or 9 for new work:
 * the small periods of 1 to 6 fail demanding tests (see docs/random.md). A thread that draws without a seed
 * takes one from the clock, in seconds, so threads that start together get the same stream: seed them.
 *
 * State lives until its thread ends or calls tavik_free_allocated_memory. After fork(), parent and child go on
 * with the same stream: seed the child. Sources: Lewis, Goodman, Miller 1969; Fishman, Moore 1986
 * (multipliers); Bays, Durham 1976 (shuffling; here the slot is given by the low 7 bits of the new residue);
 * Fushimi 1990 (GFSR); Matsumoto, Nishimura 1998; Nishimura 2000 (twisters).
 * --------------------------------------------------------------------------------------------------------- */

/**
 * Selects the calling thread's generator.
 *
 * @param generator_option  1 to 9, as in the table above.
 *
 * Seed, tables and twister states stay as they are: a generator that was used before goes on where it was, and
 * the shuffle table that generator 2 filled serves generators 4 and 6, too, until it is set.
 *
 * Errors: 5, 602 `generator_option` outside 1 to 9; the generator stays selected.
 */
TAVIK_API void tavik_random_option(int generator_option);

/** The number of the calling thread's generator, 1 to 9. */
TAVIK_API int tavik_random_option_get(void);

/**
 * Sets the seed of the calling thread.
 *
 * @param seed  1 to 2147483646; 0 takes the time of day. Others are ignored, without an error.
 *
 * Generators 1 to 6 continue from it. Tables (generators 2, 4, 6, 7) and twister states (8, 9) that exist are
 * not made anew: to start these anew from a seed, mark them unfilled with their ..._table_set routine.
 *
 *     tavik_random_option(9);
 *     tavik_random_seed_set(20261121);
 *     double *u = tavik_d_random_uniform(1000, 0);
 */
TAVIK_API void tavik_random_seed_set(int seed);

/**
 * The current seed of the calling thread, taken from the clock first if it has none. For generators 1, 3 and 5
 * it is the state of the recursion, so setting it again later repeats or continues the stream. Generator 7
 * overwrites it with its last word; 8 and 9 leave it alone.
 */
TAVIK_API int tavik_random_seed_get(void);

/**
 * The seed with which the selected generator would go on after 100,000 deviates from a given seed: the start of
 * the next substream.
 *
 * @param seed  the seed at which a substream starts. The state of the thread is neither used nor changed.
 * @return the seed of the next one; after an error `seed`.
 *
 * Errors: 5, 65100 generator 2, 4 or 6; 5, 65101 generator 7, 8 or 9: these have no substream seeds.
 *
 *     int seed = 1;                                      // thread k gets its own 100,000 deviates
 *     for (int k = 0; k < my_number; ++k) seed = tavik_random_substream_seed_get(seed);
 *     tavik_random_seed_set(seed);
 */
TAVIK_API int tavik_random_substream_seed_get(int seed);

/**
 * Uniform deviates on (0, 1) from the calling thread's generator.
 *
 * @param n_random  number of deviates, at least 1.
 *
 * Options: TAVIK_RETURN_USER, float * / double *   array of n_random elements for the result
 *
 * @return n_random deviates: a new array, or the array of TAVIK_RETURN_USER. NULL after an error.
 *
 * The ends of the interval are reached, rarely: generator 9 gives multiples of 2^-53, so 0 once in 2^53 draws.
 * In float, generators 8 and 9 round to the nearest number, which is 1 once in 2^25 draws; so can the 128
 * numbers be that a float shuffle table is filled with. Generator 7 in double gives 1 once in 2^30 draws,
 * unless it is what the thread selected first. Generators 1 to 6 give 0 after two kinds of misuse only: from
 * the seed 2147483647, which generator 7 can leave behind (set a seed when you turn from 7 to these), and from
 * a shuffle table that was asked for while a generator without shuffling was selected (see
 * tavik_d_random_table_get).
 *
 * Errors: 5, 603 `n_random` below 1.
 *
 *     double u[1000];
 *     tavik_d_random_uniform(1000, TAVIK_RETURN_USER, u, 0);
 */
TAVIK_API float *tavik_f_random_uniform(int n_random, ...);
TAVIK_API double *tavik_d_random_uniform(int n_random, ...);

/**
 * Integers that are uniform on 1 to k.
 *
 * @param n_random  number of integers, at least 1.
 * @param k         upper end, at least 1.
 *
 * Options: TAVIK_RETURN_USER, int *   array of n_random elements for the result
 *
 * @return n_random integers: a new array, or the array of TAVIK_RETURN_USER. NULL after an error.
 *
 * Both variants take one float uniform u for each integer, the integer part of k u + 1 in float arithmetic. So
 * integers beyond 2^24 are not all reached.
 *
 * Errors: 5, 603 `n_random` or `k` below 1.
 *
 *     int *dice = tavik_d_random_uniform_discrete(100, 6, 0);
 */
TAVIK_API int *tavik_f_random_uniform_discrete(int n_random, int k, ...);
TAVIK_API int *tavik_d_random_uniform_discrete(int n_random, int k, ...);

/**
 * Normal deviates from the uniforms of the calling thread's generator.
 *
 * @param n_random  number of deviates, at least 1.
 *
 * Options:
 *   TAVIK_RETURN_USER, float * / double *         array of n_random elements for the result
 *   TAVIK_MEAN, double mean                       default 0
 *   TAVIK_MEAN_ADR, float * / double *mean        the same, read through a pointer
 *   TAVIK_VARIANCE, double variance               greater than 0; default 1. Infinity gives infinite
 *                                                 deviates
 *   TAVIK_VARIANCE_ADR, float * / double *        the same, read through a pointer
 *   TAVIK_ACCEPT_REJECT                           method of Kinderman and Ramage (1976)
 *   TAVIK_ZIGGURAT                                ziggurat of Marsaglia and Tsang (2000), 128 layers
 * Without a method, or with the last one given when there are several: inversion, which takes one uniform for
 * each deviate and is the only one that keeps their order and correlations. The methods give different streams.
 *
 * @return n_random deviates: a new array, or the array of TAVIK_RETURN_USER. NULL after an error, but after
 * 5, 20457 the array of TAVIK_RETURN_USER, which is then unchanged.
 *
 * Kinderman and Ramage's constants have eight digits in both variants, so the density of these deviates is
 * right to about 1e-8; the ziggurat's tail begins 1.4e-5 inside of the base strip's end. Both are fixed by
 * saved streams. Inversion is accurate to 2 units in the last place. A uniform that is exactly 0 or 1 (see
 * tavik_d_random_uniform) is taken as 2^-53 or as the last number below 1, so deviates are finite. Long runs
 * are inverted on several threads; all uniforms are drawn by the calling thread, so the result does not depend
 * on their number. Deviates have the same bits on every processor.
 *
 * Errors: 5, 603 `n_random` below 1; 5, 20457 the variance is not greater than 0.
 *
 *     double *z = tavik_d_random_normal(1000, TAVIK_MEAN, 100.0, TAVIK_VARIANCE, 225.0, TAVIK_ZIGGURAT, 0);
 */
TAVIK_API float *tavik_f_random_normal(int n_random, ...);
TAVIK_API double *tavik_d_random_normal(int n_random, ...);

/**
 * Save and restore the shuffle table of generators 2, 4 and 6. Float and double draws have tables of their own;
 * save the one that the program draws with, and the seed.
 *
 * @param table  get: address of a pointer that receives a new array of 128 elements; it is not used, and may be
 *               NULL, with TAVIK_RETURN_USER. A table that is not filled yet is filled from the seed first;
 *               with a generator that does not shuffle, it stays as it is (all 0 in a new thread) and counts as
 *               filled.
 *               set: 128 numbers between 0 and 1, exclusive; or any array whose first element is 0 or negative,
 *               which marks the table as unfilled, so that the next draw fills it from the seed.
 *
 * Options of get: TAVIK_RETURN_USER, float * / double *   array of 128 elements for the copy
 *
 * Errors: 5, 11031 a value that is not between 0 and 1; the values before it are in the table.
 *
 *     double *table;
 *     int seed = tavik_random_seed_get();
 *     tavik_d_random_table_get(&table, 0);
 *     ...
 *     tavik_random_seed_set(seed);
 *     tavik_d_random_table_set(table);
 */
TAVIK_API void tavik_f_random_table_get(float **table, ...);
TAVIK_API void tavik_d_random_table_get(double **table, ...);
TAVIK_API void tavik_f_random_table_set(const float table[]);
TAVIK_API void tavik_d_random_table_set(const double table[]);

/**
 * Save and restore the table of generator 7.
 *
 * @param table  get: address of a pointer that receives a new array of 1565 elements, 1563 words and two
 *               positions; it is not used, and may be NULL, with TAVIK_RETURN_USER. A table that is not built yet
 *               is built from the seed first.
 *               set: such a table, its words at least 1 and its positions 1 to 1563; or any array whose first
 *               element is less than 1, which marks the table as unbuilt, so that the next draw builds it from
 *               the seed.
 *
 * Options of get: TAVIK_RETURN_USER, int *   array of 1565 elements for the copy
 *
 * Errors: 5, 65102 a word or position outside these ranges; the words before it are in the table, the positions
 * are unchanged.
 */
TAVIK_API void tavik_random_GFSR_table_get(int **table, ...);
TAVIK_API void tavik_random_GFSR_table_set(const int table[]);

/**
 * Seed generator 8 (MT32) or 9 (MT64) from a key, by the initialisation that the twisters' authors published for
 * arrays. This does not select the generator.
 *
 * @param key_length  length of the key, at least 2. With 1 the routine does nothing, and raises nothing.
 * @param key         the key.
 *
 * Errors: 5, 603 `key_length` below 1.
 *
 *     uint32_t key[] = {0x123, 0x234, 0x345, 0x456};
 *     tavik_random_MT32_init(4, key);
 *     tavik_random_option(8);
 */
TAVIK_API void tavik_random_MT32_init(int key_length, const uint32_t key[]);
TAVIK_API void tavik_random_MT64_init(int key_length, const uint64_t key[]);

/**
 * Save and restore the state of generator 8 (MT32) or 9 (MT64).
 *
 * @param table  get: address of a pointer that receives a new array of 625 (MT64: 313) elements, the index of
 *               the next word and the words of the state; it is not used, and may be NULL, with
 *               TAVIK_RETURN_USER. A state that does not exist yet is made from the seed first.
 *               set: such a table. An index of 625 (313) makes the next draw seed the state anew; a greater one
 *               discards the state, to the same effect.
 *
 * Options of get: TAVIK_RETURN_USER, uint32_t * / uint64_t *   array of 625 / 313 elements for the copy
 */
TAVIK_API void tavik_random_MT32_table_get(uint32_t **table, ...);
TAVIK_API void tavik_random_MT32_table_set(const uint32_t table[]);
TAVIK_API void tavik_random_MT64_table_get(uint64_t **table, ...);
TAVIK_API void tavik_random_MT64_table_set(const uint64_t table[]);

/* ------------------------------------------------------------------------------------------------------------
 * Regression
 * --------------------------------------------------------------------------------------------------------- */

/**
 * Least-squares fit of one or more responses on the same independent variables, in one call or in stages.
 *
 * @param n_rows         rows of x and y in this call, at least 1 (at least 0 in stages).
 * @param n_independent  independent variables, at least 1.
 * @param x              n_rows x n_independent values, by rows. NaN is a missing value. With TAVIK_X_INDICES a row
 *                       holds the responses, too. May be NULL when n_rows is 0.
 * @param y              n_rows x n_dependent values, by rows; not used, and may be NULL, with TAVIK_X_INDICES.
 *
 * @return the coefficients, (n_independent + 1) x max(1, n_dependent) elements: one block a response, in each
 *         the intercept first where there is one, then the variables; what they leave of a block is 0. A new
 *         array, released with tavik_free. NULL on error, and for stages 1 and 2.
 *
 * Options (Real is float or double; "output Real **" is set to NULL at once and receives a new array on success):
 *   TAVIK_X_COL_DIM, int                     row stride of x; default n_independent; with TAVIK_X_INDICES
 *                                            n_independent + n_dependent and 1 each for frequency and weight
 *   TAVIK_X_INDICES, const int indind[], const int inddep[], int ifrq, int iwt
 *                                            columns of x, from 0: the independent variables, the responses, the
 *                                            case frequency, the case weight; -1 for no frequency, no weight
 *   TAVIK_N_DEPENDENT, int                   number of responses, at least 0; default 1
 *   TAVIK_INTERCEPT / TAVIK_NO_INTERCEPT     fit an intercept (the default) or none
 *   TAVIK_FREQUENCIES, const Real f[]        case frequencies, one a row: finite and not negative. A row of
 *                                            frequency f counts as f equal rows
 *   TAVIK_WEIGHTS, const Real w[]            case weights, one a row: finite and not negative. Neither goes
 *                                            together with a column of x for the same
 *   TAVIK_TOLERANCE, double                  tolerance of linear dependence; default 100 epsilon. A column counts
 *   TAVIK_TOLERANCE_ADR, const Real *        as dependent on those before it when what they leave of its sum of
 *                                            squares is at most tolerance^2 of the whole, or 0; the intercept,
 *                                            which comes first, only when there are no rows. _ADR: by address.
 *                                            The sign does not matter; NaN acts as 0
 *   TAVIK_EXCLUDE_MISSING                    leave out, and count, a row with a NaN (the default)
 *   TAVIK_KEEP_MISSING                       take it in: the results become NaN
 *   TAVIK_IDO, int stage                     0 all data in this call (default); 1 first, 2 intermediate, 3 last
 *                                            call of a series. The series belongs to the thread; stage 1 forgets
 *                                            a series that was open, stage 0 leaves it alone
 *   TAVIK_ROWS_ADD / TAVIK_ROWS_DELETE       take the rows of this call in (the default), or out again: with the
 *                                            stages this slides a window over the rows. A row is deleted with the
 *                                            frequency and weight that it has in this call. Deleting cannot bring
 *                                            digits back that larger, since deleted, rows have cost the others, and
 *                                            cannot take a NaN out that was kept
 *   TAVIK_FIT_POINTER, void *                kept with the series, otherwise not used
 *   TAVIK_RETURN_USER, Real []               write the coefficients here (untouched on error) and return it
 *   TAVIK_ANOVA_TABLE, output Real **        analysis of variance, 15 entries a response (below). Not in stages
 *   TAVIK_ANOVA_TABLE_USER, Real []
 *   TAVIK_COEF_STATISTICS, output Real **    per response n_coefficients x 4: estimate, standard error, t, p of
 *                                            the two-sided test
 *   TAVIK_COEF_COVARIANCES, output Real **   covariances of the coefficients, a square block a response
 *   TAVIK_COEF_COVARIANCES_USER, Real []
 *   TAVIK_COV_COL_DIM, int                   row stride of these blocks; default n_coefficients
 *   TAVIK_RESIDUALS, output Real **          n_rows x n_dependent; NaN for a row that was left out because of a
 *   TAVIK_RESIDUALS_USER, Real []            NaN. Not in stages
 *   TAVIK_LEVERAGES_USER, Real []            n_rows: the weight times x'(X'WX)^-1 x, so that their sum, each times
 *                                            its frequency, is the rank; NaN as before. Not in stages
 *   TAVIK_VARIABLE_MEANS, output Real **     weighted means: the independent variables, then the responses
 *   TAVIK_VARIABLE_MEANS_USER, Real []
 *   TAVIK_R_FACTOR, output Real **           upper-triangular R, n_coefficients square, R'R = X'WX; the rows of
 *   TAVIK_R_FACTOR_USER, Real []             dependent columns are 0
 *   TAVIK_ERROR_CROSSPRODUCTS, output Real **  n_dependent square: sums of squares and crossproducts of the
 *   TAVIK_ERROR_CROSSPRODUCTS_USER, Real []    residuals
 *   TAVIK_RANK, int *                        rank of the fit
 *   TAVIK_N_ROWS_MISSING, int *              rows left out because of a NaN, in the whole series, less those
 *                                            that were deleted
 * n_coefficients is n_independent, and 1 more with an intercept. Outputs are written when the fit is completed,
 * at stages 0 and 3; with an error nothing is written. Of an output in both forms, the one given last is written.
 *
 *     0 DFR, degrees of freedom of the regression    8 F, entry 6 / entry 7
 *     1 DFE, those of the error                      9 p-value of F; 1 when F is infinite
 *     2 DFR + DFE                                   10 R-squared, percent
 *     3 SSR, sum of squares of the regression       11 adjusted R-squared, percent; never below 0
 *     4 SSE, that of the error                      12 estimated standard deviation of the error
 *     5 SSR + SSE                                   13 mean of the response
 *     6 mean square of the regression, SSR / DFR    14 coefficient of variation, percent: 100 x entry 12 / 13
 *     7 mean square of the error, SSE / DFE
 *
 * DFE is the sum of the frequencies of the rows in the fit less the rank, DFR the rank less the intercept. Sums of
 * squares are corrected for the mean only with an intercept. Where DFE is negative (frequencies below 1), covariances,
 * standard errors, t and p are NaN. A dependent column has coefficient, covariances and standard error 0, and NaN for
 * t and p. Without any row in the fit the rank is 0, coefficients are 0 and means NaN, but a table with an intercept
 * is an error, since DFR is -1.
 *
 * A row whose frequency or weight is 0 is left out of the fit, but has a residual; a NaN in it makes that NaN, but is
 * not counted. A frequency or weight that is NaN counts as missing. Infinite values make results NaN. Where the mass
 * of a row times a value leaves the range of a double, or a result that of its type, results are infinite or NaN, or 0
 * at the lower end; with many rows, a value whose square times the mass is below 1e-280 counts as 0, and masses above
 * 1e290 can make results NaN. Residuals that, in the mean of squares, are below 2^-53 of their response (less the value
 * that it is taken relative to) are its rounding, and their sum of squares is 0.
 *
 * Method: the rows are folded, one after another, into upper-triangular factors by modified Givens rotations
 * (Gentleman 1973, Hammarling 1974; rotations as in Lawson, Hanson, Kincaid and Krogh 1979). With an intercept,
 * data are taken relative to a value of each column, the least in magnitude of 64 rows or fewer that are spread over
 * the first call, which keeps the digits of data far from zero. Both variants compute in double. Calls of few rows
 * (up to 65536 / columns^2, responses among them) are repeated in long double when columns nearly depend on each other;
 * very few rows (256 / columns^2), few rows in stages, and rows to be deleted are folded in long double at once, and
 * the factor of a series is kept in it. Many rows are cut into blocks by their number alone, on as many threads as
 * OpenMP allows: results do not depend on the threads. Memory besides input and result: O((n_independent +
 * n_dependent)^2) a thread.
 *
 * Warning: 3, 11047 the rank is less than n_coefficients; coefficients of dependent columns are 0.
 *
 * Errors:
 *   5, 603    n_independent below 1; n_dependent below 0; ifrq or iwt below -1; a stride below 1
 *   5, 602    stage outside 0 to 3; an entry of indind or inddep outside the row
 *   5, 601    a stride below what a row needs          5, 20463  n_rows below 1
 *   5, 20464  n_rows below 0 in stages                  5, 20690  a table, residuals or leverages in stages
 *   5, 20467, 5, 20468  ifrq, iwt outside the row       5, 11038  TAVIK_COV_COL_DIM without covariances
 *   5, 11117  a frequency or weight both as a column and as an array
 *   5, 11061  DFR, SSR, DFE or SSE of the table is negative (no row, or frequencies below 1)
 *   5, 200 coefficients, 5, 202 columns, 5, 203 factors: memory is exhausted
 *   4, 11055 (in stages 11054)  a frequency or weight is negative or infinite, or their product is infinite
 *   4, 11048  rows are deleted that cannot have been added: a sum of squares, or of frequencies, would become
 *             negative. Rows that merely differ from those that were added are not found out
 *   4, 20691  stage 2 or 3 without stage 1              4, 11428  a stage has other dimensions than the first
 * A series is closed by any error of one of its calls, and by an unknown option code in any call.
 *
 *     double *anova, *b = tavik_d_regression(n, p, x, y, TAVIK_ANOVA_TABLE, &anova, 0);
 *     printf("R-squared %.1f %%, p %.3g\n", anova[10], anova[9]);
 *
 *     tavik_d_regression(250, p, x, y, TAVIK_IDO, 1, 0);                            // a window of 250 rows,
 *     tavik_d_regression(1, p, x + 250 * p, y + 250, TAVIK_IDO, 2, 0);              // one row further:
 *     tavik_d_regression(1, p, x, y, TAVIK_IDO, 2, TAVIK_ROWS_DELETE, 0);
 *     double *c = tavik_d_regression(0, p, NULL, NULL, TAVIK_IDO, 3, 0);
 */
TAVIK_API float *tavik_f_regression(int n_rows, int n_independent, const float x[], const float y[], ...);
TAVIK_API double *tavik_d_regression(int n_rows, int n_independent, const double x[], const double y[], ...);

/* ------------------------------------------------------------------------------------------------------------
 * Multivariate analysis
 * --------------------------------------------------------------------------------------------------------- */

/**
 * K-means clustering: partitions observations into clusters so that the sum of squared distances from the
 * observations to the centres of their clusters is so small that no transfer of one observation makes it smaller.
 *
 * @param n_observations  number of observations, at least 1.
 * @param n_variables     number of variables, at least 1.
 * @param x               n_observations rows; not changed, and not copied unless columns are selected. NaN marks a
 *                        missing value.
 * @param n_clusters      number of clusters, 2 to n_observations.
 * @param cluster_seeds   n_clusters rows: the first centres. Each must be closest to some observation;
 *                        tavik_f_cluster_seeds / tavik_d_cluster_seeds chooses some.
 *
 * @return the cluster of each observation, n_observations elements from 1 to n_clusters. A new array, released with
 *         tavik_free. NULL on error.
 *
 * Options (Real is float or double; "output" pointers are set to NULL at once and receive a new array on success):
 *   TAVIK_X_COL_DIM, int                  row stride of x; default n_variables
 *   TAVIK_CLUSTER_SEEDS_COL_DIM, int      row stride of cluster_seeds; default n_variables
 *   TAVIK_CLUSTER_MEANS_COL_DIM, int      row stride of the means; default n_variables
 *   TAVIK_CLUSTER_VARIABLES, const int [] n_variables columns of x, from 0, to be used as variables in this order;
 *                                         default the first ones. They are copied
 *   TAVIK_FREQUENCIES, const Real []      frequency of each observation: positive and finite. An observation of
 *                                         frequency f is one that f equal ones make, and stays in one cluster
 *   TAVIK_WEIGHTS, const Real []          weight of each observation: positive and finite. Mass is frequency times
 *                                         weight
 *   TAVIK_MAX_ITERATIONS, int             most iterations; default 30. None below 1
 *   TAVIK_RETURN_USER, int []             write the clusters here (untouched on error) and return it
 *   TAVIK_CLUSTER_MEANS, output Real **   centres, n_clusters rows: means of the members, weighted by mass, of each
 *   TAVIK_CLUSTER_MEANS_USER, Real []     variable over those that have it; NaN where none has
 *   TAVIK_CLUSTER_SSQ, output Real **     n_clusters: sums of squared distances from the members to their centre,
 *   TAVIK_CLUSTER_SSQ_USER, Real []       weighted by mass
 *   TAVIK_CLUSTER_COUNTS, output int **   n_clusters: numbers of observations, whatever their mass
 *   TAVIK_CLUSTER_COUNTS_USER, int []
 *   TAVIK_CLUSTER_HISTORY, int *, output int **     number of iterations, and the clusters of all observations
 *   TAVIK_CLUSTER_HISTORY_USER, int *, int []       after each, row by row: as many rows are filled, and the array has
 *                                                   max_iterations. Iterations are counted up to the last, in which
 *                                                   nothing moves
 * Of an output in both forms, the one given last is written. With an error nothing is written, except that a user's
 * history may hold anything.
 *
 * A missing value is left out of its observation's distances, and of its cluster's mean. A mean for which no
 * member has a value is NaN; observations that have one are not moved there. Observations with infinite values
 * stay where the seeds have put them, and no observation is closest to a seed with NaN where the observation has a
 * value. Where distances to two clusters are equal, the one with the smaller number is taken first. Distances whose
 * squares leave the range of a double count as 0 or as infinite: scale such data.
 *
 * Method: Hartigan and Wong 1979, in which stages of transfers to any cluster whose surroundings have changed
 * alternate with stages of transfers between an observation's two closest clusters, as long as observations move
 * there; every 500 passes such a stage ends if that has not made the sum of squares smaller, which rounding can
 * bring about. Observations that bounds on the movement of centres show to stay are passed over; no decision
 * depends on that. Distances, means and sums are computed in double by both variants. Seeds are compared and sums
 * formed in blocks on as many threads as OpenMP allows, and bounds are brought up to date on them; transfers
 * follow each other on one. Results do not depend on the threads. Memory besides input and result:
 * O(n_observations + n_clusters x n_variables x threads).
 *
 * Warning: 3, 20084 clusters still changed in the last of max_iterations iterations.
 *
 * Errors:
 *   5, 603    n_observations or n_variables below 1; a stride below 1
 *   5, 601    a stride below n_variables               5, 20080  n_clusters below 2 or above n_observations
 *   5, 20081  a frequency is not positive and finite   5, 20082  a weight, or the mass, is not (rows count from 0)
 *   5, 20083  no observation is closest to a seed (clusters count from 1)
 *   5, 20090, 5, 20091  a selected column is that of the frequencies, of the weights: they count as columns of
 *                       their own behind those of x, the frequencies first
 *   5, 20092 (5, 20093 with one of frequencies and weights, 5, 20094 with both)  a selected column outside the row
 *   5, 201, 5, 202, 5, 203  memory is exhausted
 *
 *     double *means;
 *     int *cluster = tavik_d_cluster_k_means(n, p, x, 3, seeds, TAVIK_CLUSTER_MEANS, &means, 0);
 *     ...
 *     tavik_free(means);
 *     tavik_free(cluster);
 */
TAVIK_API int *tavik_f_cluster_k_means(int n_observations, int n_variables, const float x[], int n_clusters,
                                       const float cluster_seeds[], ...);
TAVIK_API int *tavik_d_cluster_k_means(int n_observations, int n_variables, const double x[], int n_clusters,
                                       const double cluster_seeds[], ...);

/**
 * Seeds for tavik_f_cluster_k_means / tavik_d_cluster_k_means: n_clusters of the observations, drawn so that they
 * lie far apart.
 *
 * The first seed is drawn with a probability proportional to its mass, each further one proportional to its mass
 * times its squared distance from the closest seed so far. So a seed always differs from those before.
 *
 * @param n_observations  number of observations, at least 1.
 * @param n_variables     number of variables, at least 1.
 * @param x               n_observations rows, not changed. NaN marks a missing value: it is left out of
 *                        distances, and a seed gets the variable's mean, weighted by mass, for it. An observation
 *                        with an infinite value is never a seed.
 * @param n_clusters      number of seeds, 2 to n_observations.
 *
 * @return the seeds, n_clusters rows of n_variables values. A new array, released with tavik_free. NULL on error.
 *
 * Options:
 *   TAVIK_X_COL_DIM, TAVIK_CLUSTER_VARIABLES, TAVIK_FREQUENCIES, TAVIK_WEIGHTS    as for the clustering
 *   TAVIK_CLUSTER_SEEDS_COL_DIM, int      row stride of the seeds; default n_variables
 *   TAVIK_CLUSTER_TRIALS, int             observations drawn for each seed, at least 1, of which the one is taken
 *                                         that leaves the smallest sum of squared distances; default 2 and the
 *                                         natural logarithm of n_clusters, rounded down. 1 is the plain method
 *   TAVIK_RETURN_USER, Real []            write the seeds here (untouched on error, padding always) and return it
 *
 * Method: k-means++, Arthur and Vassilvitskii 2007. Each draw takes one uniform of the thread's generator, in
 * both variants one of type double: the seeds depend on the data and the generator's state only, not on the
 * number of threads.
 *
 * Errors: 5, 603 n_observations, n_variables, trials or a stride below 1; 5, 601, 5, 20080, 5, 20081, 5, 20082,
 * 5, 20090 to 20094 and memory as for the clustering; 5, 20085 fewer observations differ than there are seeds;
 * those of tavik_d_random_uniform when it cannot draw.
 *
 *     tavik_random_seed_set(1);
 *     double *seeds = tavik_d_cluster_seeds(n, p, x, 3, 0);
 *     int *cluster = tavik_d_cluster_k_means(n, p, x, 3, seeds, 0);
 */
TAVIK_API float *tavik_f_cluster_seeds(int n_observations, int n_variables, const float x[], int n_clusters,
                                       ...);
TAVIK_API double *tavik_d_cluster_seeds(int n_observations, int n_variables, const double x[], int n_clusters,
                                        ...);

/* ------------------------------------------------------------------------------------------------------------
 * Feed-forward networks
 *
 * A network is a plain record of layers, nodes (the perceptrons, and the inputs before them) and directed links with
 * weights. tavik_d_mlff_network_init makes one of an input and an output layer; tavik_d_mlff_network adds hidden
 * layers, links and all else; tavik_d_mlff_network_write and tavik_d_mlff_network_read keep it in a text file. The
 * caller may read every field and write weights, gradients, biases, param and activation codes; counts, numbers and
 * arrays are the library's. A network belongs to nobody in particular: threads may work on different ones at the same
 * time, and on the same one only in turns.
 *
 * Nodes are numbered through all layers: 0 to n_inputs - 1 are the inputs, then the hidden layers follow in their
 * order, and the outputs have the highest numbers. Links lead from a lower layer to a higher one. The potential of a
 * node is its bias and the sum of its in-links' weights times the values of the nodes that they come from; its value
 * is the activation function of that.
 *
 * A record that has been damaged (a null array, a number outside of its range) raises 5, 40121 with what was found
 * in every routine that comes across it.
 * --------------------------------------------------------------------------------------------------------- */

/* Activation functions of a potential x. */
enum tavik_activation {
    TAVIK_LINEAR = 0,   /* x */
    TAVIK_LOGISTIC = 1, /* 1 / (1 + exp(-x)) */
    TAVIK_TANH = 2,     /* tanh(x) */
    TAVIK_SQUASH = 3    /* x / (1 + |x|) */
};

typedef struct {
    int n_nodes;
    int *nodes; /* their numbers, ascending */
} tavik_layer;

typedef struct {
    float weight;   /* 0 in a new link */
    float gradient; /* 1 */
    int to_node;
    int from_node;
} tavik_f_link;

typedef struct {
    double weight;
    double gradient;
    int to_node;
    int from_node;
} tavik_d_link;

typedef struct {
    int layer_id;
    int n_inLinks;
    int n_outLinks;
    int *inLinks;      /* indices of the links that end here, in the order of their creation */
    int *outLinks;     /* of those that start here */
    float param;       /* for trainers; 1 in a new node */
    float bias;        /* 0 */
    int activationFcn; /* an activation code: TAVIK_LOGISTIC in a new hidden layer, elsewhere TAVIK_LINEAR */
} tavik_f_node;

typedef struct {
    int layer_id;
    int n_inLinks;
    int n_outLinks;
    int *inLinks;
    int *outLinks;
    double param;
    double bias;
    int activationFcn;
} tavik_d_node;

typedef struct {
    int n_inputs;
    int n_outputs;
    int n_layers; /* with the input and the output layer */
    tavik_layer *layers;
    int n_links;
    int next_link; /* the index of the next link that is made: n_links */
    tavik_f_link *links;
    int n_nodes;
    tavik_f_node *nodes;
} tavik_f_network;

typedef struct {
    int n_inputs;
    int n_outputs;
    int n_layers;
    tavik_layer *layers;
    int n_links;
    int next_link;
    tavik_d_link *links;
    int n_nodes;
    tavik_d_node *nodes;
} tavik_d_network;

/**
 * A new network of an input and an output layer, without links. All nodes are linear, with bias 0.
 *
 * @param n_inputs   input nodes, at least 1.
 * @param n_outputs  output nodes, at least 1.
 *
 * @return the network, released with tavik_f_mlff_network_free (tavik_d_mlff_network_free). NULL on error.
 *
 * Errors: 5, 603 n_inputs or n_outputs below 1; 5, 40120 more nodes than an int counts.
 */
TAVIK_API tavik_f_network *tavik_f_mlff_network_init(int n_inputs, int n_outputs);
TAVIK_API tavik_d_network *tavik_d_mlff_network_init(int n_inputs, int n_outputs);

/** Releases a network and all that it holds. NULL is ignored. */
TAVIK_API void tavik_f_mlff_network_free(tavik_f_network *network);
TAVIK_API void tavik_d_mlff_network_free(tavik_d_network *network);

/**
 * Edits, fills or prints a network.
 *
 * Options, which are carried out in this order whatever their order in the call (Real is float or double):
 *   TAVIK_CREATE_HIDDEN_LAYER, int n     add a layer of n logistic nodes, n at least 1, before the output layer.
 *                                        Output nodes get higher numbers, but existing links are not renumbered:
 *                                        create all layers before the first link
 *   TAVIK_ACTIVATION_FCN, int layer, const int []   the activation code of each node of a layer from 1 to n_layers -
 *                                        1. A wrong code ends this; the nodes before it keep their new codes
 *   TAVIK_BIAS, int layer, const Real [] the bias of each node of such a layer
 *   TAVIK_LINK_ALL                       link each layer to the next: node by node of the layer that links come from,
 *                                        and for each node by node of the other
 *   TAVIK_LINK_LAYER, int to, int from   link two layers in that order, `from` below `to`. A negative `from` is no
 *                                        layer: no link is made
 *   TAVIK_LINK_NODE, int to, int from    make the link to a node from a node of a lower layer
 *   TAVIK_REMOVE_LINK, int to, int from  remove the link to a node from a node; if there are several, the last one.
 *                                        Links made after it move down one place. Both numbers must be below n_links
 *                                        (so a small network can have links that cannot be removed)
 *   TAVIK_WEIGHTS, const Real []         the weight of each link, n_links elements
 *   TAVIK_N_LINKS, int *                 receives the number of links
 *   TAVIK_PRINT, TAVIK_PRINT_NETWORK     print layers, nodes and links on the output unit
 * Only one of the four that make or remove links may stand in a call. An option that is given twice counts with its
 * last values: activation functions and biases of two layers take two calls. Errors end the call; what earlier
 * options of the list above did remains, as the last of them left it.
 *
 * A link that exists already is not made again: 6, 40096 tells so, and the call goes on.
 *
 * Errors:
 *   5, 11001  an unknown option; its position counts the network and all values (the first option is argument 2)
 *   5, 11117  more than one option that makes or removes links; nothing is changed
 *   5, 603    a layer of less than 1 node         5, 40120  more nodes or links than an int counts
 *   5, 40097  the layer to edit or to link to is not 1 to n_layers - 1
 *   5, 40089  an activation code (its index and value) is not 0 to 3
 *   5, 40098  the layer to link from is the last or beyond     5, 40092  from and to are one layer
 *   5, 605    a link would lead from a higher layer to a lower one
 *   5, 602    the node to link to is no perceptron, or the one to link from is an output or no node
 *   5, 40091, 5, 40093  the same where the numbers of a record contradict its layers
 *   5, 40094  to or from of a link to remove is not 0 to n_links - 1     5, 40095  there is no such link
 *
 * Cost: linking layers takes time proportional to the links made, those that come from their nodes and the number of
 * nodes; linking two nodes, to the links that come from one; removing, to the links that move and the number of
 * nodes.
 *
 *     tavik_d_network *network = tavik_d_mlff_network_init(4, 3);
 *     tavik_d_mlff_network(network, TAVIK_CREATE_HIDDEN_LAYER, 5, TAVIK_LINK_ALL, 0);
 *     ...
 *     tavik_d_mlff_network_free(network);
 */
TAVIK_API void tavik_f_mlff_network(tavik_f_network *network, ...);
TAVIK_API void tavik_d_mlff_network(tavik_d_network *network, ...);

/**
 * Writes a network to a text file.
 *
 * @param filename  its name, or NULL: then a stream is written, or, without one, nothing is done.
 *
 * Options:
 *   TAVIK_FILE, FILE *   write to this stream, not to a file, from where it is, and leave it open; NULL is none
 *   TAVIK_PRINT          report progress on the output unit
 *
 * A regular file appears under its name only when it is complete: it is written beside it and renamed, so a failure
 * leaves the old file as it was. The target itself is written where a new file could not stand for it: devices and
 * pipes, a file with several links or of another owner, and in folders that allow no new file. Nothing is forced to
 * the disk: who fears for the power calls fsync. 15 digits bring a float back exactly, and a double to a relative
 * error of 5e-15 (within which the very largest becomes infinite). The bytes do not depend on the locale:
 *
 *     1.000000                                              the version of the format
 *     n_inputs n_outputs n_layers n_links n_nodes next_link
 *     for each layer: number of nodes, their numbers
 *     for each link: from_node to_node weight gradient      real numbers with 15 digits, %20.15g
 *     for each node: layer_id n_inLinks n_outLinks activationFcn bias param,
 *         then, if there are any, a line of its in-links, and one of its out-links
 *
 * Errors: 5, 65359 the file cannot be opened; 5, 65374 it cannot be written whole (a full disk, say); 5, 40121 the
 * lists of the nodes do not match the links, as when a layer was made after links: nobody could read that.
 */
TAVIK_API void tavik_f_mlff_network_write(tavik_f_network *network, const char *filename, ...);
TAVIK_API void tavik_d_mlff_network_write(tavik_d_network *network, const char *filename, ...);

/**
 * Reads a network that tavik_f_mlff_network_write or tavik_d_mlff_network_write has written.
 *
 * @param filename  its name; may be NULL with a stream.
 *
 * @return the network, released with tavik_f_mlff_network_free (tavik_d_mlff_network_free). NULL on error.
 *
 * Options:
 *   TAVIK_FILE, FILE *   read from this stream, not from a file, from where it is, up to the last number of the
 *                        network, and leave it open: another network may follow. NULL is none
 *   TAVIK_PRINT          report progress on the output unit
 *
 * Both variants read what either has written. A number that is too small for the type becomes 0, one that is too
 * large infinite.
 *
 * Errors: 5, 150 neither a file name nor a stream; 5, 65359 the file cannot be opened; 5, 65372 its version is not 1;
 * 5, 65373 the file ends early, holds what is no number, or counts, numbers and lists that no
 * network has: with the line and the reason. Memory grows with what has been read, whatever counts a file claims.
 *
 *     tavik_d_mlff_network_write(network, "flowers.net", 0);
 *     tavik_d_network *same = tavik_d_mlff_network_read("flowers.net", 0);
 */
TAVIK_API tavik_f_network *tavik_f_mlff_network_read(const char *filename, ...);
TAVIK_API tavik_d_network *tavik_d_mlff_network_read(const char *filename, ...);

/* Methods of tavik_d_mlff_initialize_weights. */
enum tavik_weights_method {
    TAVIK_EQUAL_WEIGHTS = 1,
    TAVIK_RANDOM_WEIGHTS = 2,
    TAVIK_PRINCIPAL_COMPONENT_WEIGHTS = 3,
    TAVIK_DISCRIMINANT_WEIGHTS = 4
};

/**
 * Gives all links of a network weights, and all perceptrons biases, with which training can begin.
 *
 * @param network       one with all its links. Inputs are the nominal columns, then the continuous ones.
 * @param n_patterns    training patterns, more than n_nominal + n_continuous.
 * @param n_nominal     columns of nominal, at least 0; n_nominal + n_continuous is the network's n_inputs.
 * @param n_continuous  columns of continuous, at least 0.
 * @param nominal       n_patterns x n_nominal: nominal attributes in their 0/1 encoding, a column for each class. Not
 *                      read, and may be NULL, without columns.
 * @param continuous    n_patterns x n_continuous, best scaled to similar ranges; the same.
 *
 * @return n_links + n_nodes - n_inputs values: the weight of every link, then the bias of every node that is no
 *         input. The network has the same ones. A new array, released with tavik_free. NULL on error.
 *
 * Options:
 *   TAVIK_METHOD, int                a tavik_weights_method; default TAVIK_RANDOM_WEIGHTS
 *   TAVIK_CLASSIFICATION, const int []  the class of each pattern, from 0: one of two for a network of one output, of
 *                                    n_outputs for others
 *   TAVIK_PRINT                      print a summary and all weights on the output unit, with inputs (N nominal, X
 *                                    continuous) and perceptrons (P) numbered from 0
 *   TAVIK_RETURN_USER, Real []       write the weights here and return it
 *
 * Equal weights: 1/d in each of a perceptron's d in-links, bias 0. The others differ in the first hidden layer
 * (without one, in the output layer), whose potentials get mean 0 and standard deviation 1 (divisor n_patterns - 1)
 * over the patterns; in later layers weights and biases are uniform on [-0.5, 0.5).
 *   Random weights: weights uniform on [-0.5, 0.5), then scaled. With z the potentials that they and a bias u0 give,
 *       m their mean and s their standard deviation, the weights become u/s and the bias (u0 - m)/s.
 *   Principal components: perceptron k takes the k-th one of the inputs' correlation matrix; random, if there are no
 *       more (a constant input adds none).
 *   Discriminant: perceptron k takes the k-th canonical discriminant function of the classes; random, if there are no
 *       more. Where these functions put no more patterns into their class than the largest class has, a warning is
 *       printed on the output unit, also without TAVIK_PRINT.
 * The summary calls components random weights, too. Patterns with a value that is NaN or infinite are left out;
 * potentials whose standard deviation is below 1e-20 are not scaled; a weight beyond the range of the type is
 * infinite. The sign of a component or function makes its largest coefficient, for inputs of standard deviation 1,
 * positive. A perceptron that is not linked to all inputs takes the part of it that it can. Computed in double by
 * both variants. Uniforms come from the thread's generator: perceptron by perceptron, in the first layer the bias
 * first, in later ones last.
 *
 * Warning: 3, 40114 discriminant weights without classes: weights are random.
 *
 * Errors:
 *   5, 603    n_nominal or n_continuous below 0         5, 40115  both are 0
 *   5, 40102  n_patterns is not more than their sum     5, 40085  their sum is not n_inputs
 *   5, 40100  the method is not 1 to 4                  5, 40101  discriminant weights for less than two classes
 *   5, 40104, 5, 40105  the output layer does not fit the number of classes
 *   5, 602    a class is not 0 to the number of classes - 1
 *   5, 201    memory is exhausted for the weights
 *   and those of tavik_d_random_uniform when it cannot draw
 */
TAVIK_API float *tavik_f_mlff_initialize_weights(tavik_f_network *network, int n_patterns, int n_nominal,
                                                 int n_continuous, const int nominal[],
                                                 const float continuous[], ...);
TAVIK_API double *tavik_d_mlff_initialize_weights(tavik_d_network *network, int n_patterns, int n_nominal,
                                                  int n_continuous, const int nominal[],
                                                  const double continuous[], ...);

/* ------------------------------------------------------------------------------------------------------------
 * Probability
 * --------------------------------------------------------------------------------------------------------- */

/**
 * The regularised incomplete beta function I_x(a, b), the probability that a beta variable with these shape
 * parameters is at most x.
 *
 * @param x     0 to 1.
 * @param a, b  shape parameters, greater than 0; infinity gives the limit.
 *
 * @return I_x(a, b); NaN after an error, for an argument that is NaN, and when both a and b are infinite.
 *
 * Errors: 5, 11201 x is outside of 0 to 1; 5, 11202 a or b is not greater than 0.
 * Method: Boost.Math in long double (after DiDonato and Morris 1992); Temme's expansion (1987) where a and b are both
 * at least 1e8. Largest relative error found of the double variant, against 90 digits: 1.3e-16 for a and b from 1e-3 to
 * 1e3, 6e-15 to 1e5, 6e-14 to 1e6, 8e-12 where both are greater. The float variant rounds that result.
 *
 *     double p = tavik_d_beta_incomplete(dfe / (dfe + f * dfr), dfe / 2, dfr / 2); // upper tail of F
 */
TAVIK_API float tavik_f_beta_incomplete(float x, float a, float b);
TAVIK_API double tavik_d_beta_incomplete(double x, double a, double b);

/* ------------------------------------------------------------------------------------------------------------
 * Numerical support
 * --------------------------------------------------------------------------------------------------------- */

/**
 * Set up a modified Givens rotation, as the BLAS routines of these names do: the matrix H that makes the second
 * component of (sqrt(d1) x1, sqrt(d2) y1) zero, without a square root.
 *
 * @param d1, d2  scale factors; they become those of the rotated components.
 * @param x1      first component; it becomes its rotated value.
 * @param y1      second component, which the rotation makes zero; unchanged.
 * @param param   5 elements: the flag, h11, h21, h12, h22. With the flag -1 all four of H are stored, with 0 h21
 *                and h12 (h11 = h22 = 1), with 1 h11 and h22 (h12 = 1, h21 = -1), with -2 none (H = I).
 *
 * A negative d1, or a d2 that leaves no positive sum of squares, gives H = 0 and d1 = d2 = x1 = 0. Scale factors
 * are kept within 4096^-2 and 4096^2 by scaling the rows of H, with the flag -1. A NaN or infinite argument never
 * makes a loop: a NaN that takes part makes d1, d2 and x1 NaN, unless d1 is negative.
 *
 * Errors: 5, 150 a pointer is NULL. Source: Lawson, Hanson, Kincaid and Krogh (1979), ACM TOMS 5, 308-323.
 */
TAVIK_API void tavik_srotmg(float *d1, float *d2, float *x1, float y1, float param[]);
TAVIK_API void tavik_drotmg(double *d1, double *d2, double *x1, double y1, double param[]);

/**
 * Apply a modified Givens rotation to n pairs: (x_i, y_i) becomes H (x_i, y_i).
 *
 * @param n           number of pairs; nothing is done for less than 1.
 * @param x, y        the vectors, changed in place. They may not overlap.
 * @param incx, incy  distance of successive elements; with a negative one the vector runs backwards, from
 *                    element (1 - n) inc on; with 0 all elements are the first.
 * @param param       what tavik_srotmg (tavik_drotmg) has stored. Nothing is done for the flag -2.
 *
 * Errors: 5, 150 a pointer is NULL and n at least 1.
 *
 *     double param[5];
 *     tavik_drotmg(&d1, &d2, &r[0], row[0], param);          // folds a row into a triangular factor
 *     tavik_drotm(p - 1, r + 1, 1, row + 1, 1, param);
 */
TAVIK_API void tavik_srotm(int n, float x[], int incx, float y[], int incy, const float param[]);
TAVIK_API void tavik_drotm(int n, double x[], int incx, double y[], int incy, const double param[]);

/**
 * Eigenvalues, and eigenvectors on request, of a real symmetric matrix.
 *
 * @param n  rows and columns, at least 1.
 * @param a  the matrix, not changed. Only its lower triangle (column number up to row number) is read.
 *
 * @return the n eigenvalues, the largest first. A new array, released with tavik_free. NULL on error.
 *
 * Options:
 *   TAVIK_VECTORS, Real **       n x n eigenvectors: column k belongs to eigenvalue k, has length 1, and its component
 *   TAVIK_VECTORS_USER, Real []  of largest size is positive
 *   TAVIK_A_COL_DIM, int         row stride of a; default n
 *   TAVIK_RETURN_USER, Real []   write the eigenvalues here and return it
 *
 * A result beyond the range of the type is infinite.
 *
 * Errors: 5, 603 n or the stride below 1; 5, 601 the stride below n; 5, 11210 an element is NaN or infinite (row and
 * column from 0); 5, 11211 no convergence.
 * Method: Householder reduction and implicit QR steps of Eigen, in double in both variants.
 *
 *     double *vectors, *values = tavik_d_eig_sym(n, correlations, TAVIK_VECTORS, &vectors, 0);
 */
TAVIK_API float *tavik_f_eig_sym(int n, const float a[], ...);
TAVIK_API double *tavik_d_eig_sym(int n, const double a[], ...);

#ifdef __cplusplus
}
#endif

#endif /* TAVIKSTAT_H */
