/*
 * How a program handles errors, and how it describes a file that is larger than its memory.
 *
 *     errors_and_stages FILE
 *
 * FILE is comma-separated: a line of column names, then lines of numbers without missing cells.
 */
#include <tavikstat.h>

#include <stdio.h>
#include <stdlib.h>

enum { most_columns = 16, buffer_rows = 128 };

static const char *type_name(int type)
{
    switch (type) {
    case TAVIK_NOTE: return "note";
    case TAVIK_ALERT: return "alert";
    case TAVIK_WARNING:
    case TAVIK_WARNING_IMMEDIATE: return "warning";
    case TAVIK_FATAL:
    case TAVIK_FATAL_IMMEDIATE: return "fatal";
    default: return "terminal";
    }
}

/* Prints errors in place of the library: one line each, as a log would hold it. */
static void log_error(int type, long code, const char *routine, const char *message)
{
    printf("[%s %ld] %s: %s\n", type_name(type), code, routine, message);
}

/* What a type of error does is the program's choice. */
static void set_policy(void)
{
    int stops;
    tavik_error_options(TAVIK_GET_STOP, TAVIK_TERMINAL, &stops, 0);
    printf("Terminal errors end the process: %s.\n", stops ? "yes" : "no");

    tavik_error_options(TAVIK_SET_STOP, TAVIK_FATAL, 0, TAVIK_SET_STOP, TAVIK_TERMINAL, 0, 0);
    tavik_error_options(TAVIK_GET_STOP, TAVIK_TERMINAL, &stops, 0);
    printf("Terminal errors end the process from now on: %s.\n", stops ? "yes" : "no");
}

/* After each call the error that it left can be asked for. A call that succeeds leaves none. */
static void report_last_error(void)
{
    const int type = tavik_error_type();
    const long code = tavik_error_code();
    char *text = tavik_error_message();
    if (type == 0) printf("The last call succeeded.\n");
    else printf("The last call left type %d, code %ld: %s\n", type, code, text);
    tavik_free(text);
}

static void show_errors(void)
{
    const double x[] = {4, 4, 4, 4};
    double *statistics;

    puts("\nThe library's own printer, for a confidence level of 120 percent:");
    statistics = tavik_d_simple_statistics(4, 1, x, TAVIK_CONFIDENCE_MEAN, 120.0, 0);
    printf("The result is %s.\n", statistics == NULL ? "NULL" : "an array");
    report_last_error();

    puts("\nA procedure of the program's in its place, for a column of equal values:");
    tavik_error_options(TAVIK_ERROR_PRINT_PROC, log_error, 0);
    statistics = tavik_d_simple_statistics(4, 1, x, 0);
    printf("The result is %s.\n", statistics == NULL ? "NULL" : "an array");
    report_last_error();
    tavik_free(statistics);

    puts("\nThe same with warnings that are not printed:");
    tavik_error_options(TAVIK_SET_PRINT, TAVIK_WARNING_IMMEDIATE, 0, 0);
    statistics = tavik_d_simple_statistics(4, 1, x, 0);
    report_last_error();
    tavik_free(statistics);
    tavik_error_options(TAVIK_SET_PRINT, TAVIK_WARNING_IMMEDIATE, 1, 0);
}

/* Skips the line of names. Returns how many there are. */
static int read_header(FILE *file)
{
    int c, n_columns = 1;
    while ((c = getc(file)) != '\n' && c != EOF) n_columns += c == ',';
    return n_columns;
}

/* Fills the buffer with the next rows. Returns how many there are; 0 at the end of the file. */
static int read_rows(FILE *file, int n_columns, double buffer[])
{
    int n = 0;
    while (n < buffer_rows * n_columns && fscanf(file, "%lf", &buffer[n]) == 1) {
        ++n;
        if (n % n_columns != 0 && getc(file) != ',') break;
    }
    if (n % n_columns != 0 || (n < buffer_rows * n_columns && !feof(file))) {
        fprintf(stderr, "row %d of this piece is not %d numbers\n", n / n_columns + 1, n_columns);
        exit(EXIT_FAILURE);
    }
    return n / n_columns;
}

/* One series of calls on pieces of the file. The library keeps the moments in between, never the data. */
static double *describe_in_stages(FILE *file, int n_columns)
{
    double buffer[buffer_rows * most_columns];
    int stage = 1, n_rows, n_pieces = 0;
    while ((n_rows = read_rows(file, n_columns, buffer)) > 0) {
        tavik_d_simple_statistics(n_rows, n_columns, buffer, TAVIK_IDO, stage, 0);
        if (tavik_error_type() == TAVIK_FATAL || tavik_error_type() == TAVIK_TERMINAL) return NULL;
        stage = 2;
        ++n_pieces;
    }
    printf("%d pieces of at most %d rows were read.\n", n_pieces, buffer_rows);
    /* The last call may bring rows or, as here, none. */
    return tavik_d_simple_statistics(0, n_columns, buffer, TAVIK_IDO, 3, 0);
}

int main(int argc, char **argv)
{
    FILE *file;
    double *statistics;
    int n_columns;
    if (argc != 2 || (file = fopen(argv[1], "r")) == NULL) {
        fprintf(stderr, "usage: %s FILE (a file that can be read)\n", argv[0]);
        return EXIT_FAILURE;
    }
    n_columns = read_header(file);
    if (n_columns > most_columns) {
        fprintf(stderr, "%s has more than %d columns\n", argv[1], most_columns);
        return EXIT_FAILURE;
    }

    tavik_error_options(TAVIK_SET_ERROR_FILE, stdout, 0);
    set_policy();
    show_errors();

    printf("\nA series of calls, for %s:\n", argv[1]);
    statistics = describe_in_stages(file, n_columns);
    fclose(file);
    if (statistics == NULL) {
        report_last_error();
        return EXIT_FAILURE;
    }
    for (int j = 0; j < n_columns; ++j)
        printf("Column %d: %g values, mean %.6g, standard deviation %.6g, from %g to %g\n", j + 1,
               statistics[9 * n_columns + j], statistics[j], statistics[2 * n_columns + j],
               statistics[5 * n_columns + j], statistics[6 * n_columns + j]);
    tavik_free(statistics);

    puts("\nA last stage without a first one:");
    tavik_d_simple_statistics(0, n_columns, (const double[]){0}, TAVIK_IDO, 3, 0);
    report_last_error();
    return EXIT_SUCCESS;
}
