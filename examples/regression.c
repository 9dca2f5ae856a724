/*
 * Linear regression: a whole table at once, a file that is read year by year, and a window that slides over it.
 *
 *     regression TABLE MONTHS
 *
 * Both files are comma-separated numbers below a line of column names. The last column of TABLE is regressed on
 * the others. MONTHS holds complete years: year, month, and a value that is regressed on time and season.
 */
#include <tavikstat.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { most_columns = 16, line_size = 512 };

struct csv {
    FILE *file;
    const char *name;
    long line;
    int n_columns;
    const char *columns[most_columns]; /* their names, which lie in the header */
    char header[line_size];
};

static void reject(const struct csv *csv, const char *reason)
{
    fprintf(stderr, "%s:%ld: %s\n", csv->name, csv->line, reason);
    exit(EXIT_FAILURE);
}

static void open_csv(struct csv *csv, const char *name)
{
    *csv = (struct csv){.file = fopen(name, "r"), .name = name, .line = 1};
    if (csv->file == NULL) {
        perror(name);
        exit(EXIT_FAILURE);
    }
    if (fgets(csv->header, line_size, csv->file) == NULL) reject(csv, "there is no line of column names");
    for (char *c = strtok(csv->header, ",\r\n"); c != NULL; c = strtok(NULL, ",\r\n")) {
        if (csv->n_columns == most_columns) reject(csv, "there are too many columns");
        csv->columns[csv->n_columns++] = c;
    }
    if (csv->n_columns < 2) reject(csv, "there are fewer than two columns");
}

/* Reads the next row. Returns 0 at the end of the file. */
static int read_row(struct csv *csv, double row[])
{
    char line[line_size], *cell = line;
    ++csv->line;
    if (fgets(line, sizeof line, csv->file) == NULL) {
        if (ferror(csv->file)) reject(csv, "the file cannot be read");
        return 0;
    }
    line[strcspn(line, "\r\n")] = '\0';
    for (int j = 0; j < csv->n_columns; ++j) {
        char *end;
        row[j] = strtod(cell, &end);
        if (end == cell || *end != (j + 1 < csv->n_columns ? ',' : '\0'))
            reject(csv, "this line does not hold one number for each column");
        cell = end + 1;
    }
    return 1;
}

/* Reads the rows that are left, one behind the other. */
static double *read_all(struct csv *csv, int *n_rows)
{
    const size_t n_columns = (size_t)csv->n_columns;
    size_t n = 0, capacity = 0;
    double row[most_columns], *values = NULL;
    while (read_row(csv, row)) {
        if (n == capacity) {
            capacity = 2 * capacity + 64;
            values = realloc(values, capacity * n_columns * sizeof *values);
            if (values == NULL) reject(csv, "memory is exhausted");
        }
        memcpy(&values[n++ * n_columns], row, n_columns * sizeof *row);
    }
    *n_rows = (int)n;
    return values;
}

/* To be called after each fit. The library's printer is off (see main), so the program says what went wrong. */
static void check_fit(const char *what)
{
    const int type = tavik_error_type();
    char *text;
    if (type != TAVIK_FATAL && type != TAVIK_TERMINAL) return;
    text = tavik_error_message();
    fprintf(stderr, "%s cannot be fitted: %s (%ld)\n", what, text != NULL ? text : "", tavik_error_code());
    tavik_free(text);
    tavik_free_allocated_memory();
    exit(EXIT_FAILURE);
}

static void print_coefficients(int n_variables, const char *const names[], const double statistics[])
{
    printf("%-24s %12s %14s %10s %10s\n", "", "estimate", "standard error", "t", "p");
    for (int j = 0; j <= n_variables; ++j) {
        const double *s = &statistics[4 * j];
        printf("%-24s %12.6g %14.6g %10.3f %10.2g\n", j == 0 ? "intercept" : names[j - 1], s[0], s[1], s[2],
               s[3]);
    }
}

static void print_anova(const double a[])
{
    printf("%-12s %4s %16s %14s %10s %10s\n", "", "DF", "sum of squares", "mean square", "F", "p");
    printf("%-12s %4g %16.6g %14.6g %10.4g %10.3g\n", "regression", a[0], a[3], a[6], a[8], a[9]);
    printf("%-12s %4g %16.6g %14.6g\n", "error", a[1], a[4], a[7]);
    printf("%-12s %4g %16.6g\n\n", "total", a[2], a[5]);
    printf("R-squared %.2f %%, adjusted %.2f %%; standard deviation of the error %.5g\n", a[10], a[11],
           a[12]);
    printf("mean of the response %.5g; coefficient of variation %.2f %%\n", a[13], a[14]);
}

static void fit_table(const char *name)
{
    struct csv csv;
    int variables[most_columns], response, n_rows;
    double *values, *coefficients, *statistics, *anova;
    open_csv(&csv, name);
    values = read_all(&csv, &n_rows);
    fclose(csv.file);

    /* The table stays as it is: indices tell its columns apart. -1: there are no frequencies, no weights. */
    response = csv.n_columns - 1;
    for (int j = 0; j < response; ++j) variables[j] = j;
    coefficients =
        tavik_d_regression(n_rows, response, values, NULL, TAVIK_X_INDICES, variables, &response, -1, -1,
                           TAVIK_COEF_STATISTICS, &statistics, TAVIK_ANOVA_TABLE, &anova, 0);
    check_fit(name);
    printf("%s: %s of %d rows\n\n", name, csv.columns[response], n_rows);
    print_coefficients(response, csv.columns, statistics);
    putchar('\n');
    print_anova(anova);
    tavik_free(anova);
    tavik_free(statistics);
    tavik_free(coefficients);
    free(values);
}

/* A month is a row of time in years, the two terms of the season, and the value. */
enum { months = 12, n_terms = 3, row_size = n_terms + 1, window_years = 10, years_between_reports = 5 };
typedef double year_rows[months * row_size];
static const int terms[n_terms] = {0, 1, 2}, value[] = {n_terms};

/* Returns 0 at the end of the file. */
static int read_year(struct csv *csv, year_rows rows)
{
    const double month_angle = 2 * acos(-1.0) / months;
    double cells[most_columns]; /* year, month, value */
    if (csv->n_columns != 3) reject(csv, "the columns are not year, month and value");
    for (int i = 0; i < months; ++i) {
        double *row = &rows[i * row_size];
        if (!read_row(csv, cells)) {
            if (i > 0) reject(csv, "the last year is not complete");
            return 0;
        }
        row[0] = cells[0] + (cells[1] - 0.5) / months;
        row[1] = sin(month_angle * (cells[1] - 0.5));
        row[2] = cos(month_angle * (cells[1] - 0.5));
        row[3] = cells[2];
    }
    return 1;
}

/* One call of a series; stage 0 is a fit of its own. The mode is TAVIK_ROWS_ADD or TAVIK_ROWS_DELETE. */
static double *fit_stage(int stage, int mode, int n_years, const double rows[])
{
    double *coefficients = tavik_d_regression(n_years * months, n_terms, rows, NULL, TAVIK_X_INDICES, terms,
                                              value, -1, -1, TAVIK_IDO, stage, mode, 0);
    check_fit("A piece of the file");
    return coefficients; /* NULL in stages 1 and 2 */
}

/* One year after another is read, taken in, and forgotten. */
static void fit_stream(const char *name)
{
    static const char *const names[n_terms] = {"time, years", "season, sine", "season, cosine"};
    struct csv csv;
    year_rows year;
    int n_years = 0;
    double *coefficients, *statistics;
    open_csv(&csv, name);
    while (read_year(&csv, year)) fit_stage(n_years++ == 0 ? 1 : 2, TAVIK_ROWS_ADD, 1, year);
    fclose(csv.file);
    coefficients = tavik_d_regression(0, n_terms, NULL, NULL, TAVIK_X_INDICES, terms, value, -1, -1,
                                      TAVIK_IDO, 3, TAVIK_COEF_STATISTICS, &statistics, 0);
    check_fit(name);
    printf("\n%s: %s of %d years, one year at a time\n\n", name, csv.columns[2], n_years);
    print_coefficients(n_terms, names, statistics);
    tavik_free(statistics);
    tavik_free(coefficients);
}

/* Closes the series, which holds the years of the window, and sets its slope beside that of a fit of their rows. */
static void report_window(year_rows window[], int oldest)
{
    const int first_year = (int)window[oldest][0];
    double *slid = fit_stage(3, TAVIK_ROWS_ADD, 0, NULL);
    double *afresh = fit_stage(0, TAVIK_ROWS_ADD, window_years, window[0]);
    printf("%d to %d %14.6f %14.6f %14.1e\n", first_year, first_year + window_years - 1, slid[1], afresh[1],
           fabs(slid[1] - afresh[1]));
    tavik_free(slid);
    tavik_free(afresh);
}

static void slide_window(const char *name)
{
    struct csv csv;
    year_rows window[window_years], year;
    int oldest = 0, moved = 0;
    open_csv(&csv, name);
    for (int k = 0; k < window_years; ++k) {
        if (!read_year(&csv, window[k])) reject(&csv, "there are fewer years than the window has");
    }
    printf("\nSlope of time in a window of %d years\n\n%-12s %14s %14s %14s\n", window_years, "",
           "window slid", "fitted afresh", "difference");
    fit_stage(1, TAVIK_ROWS_ADD, window_years, window[0]);
    report_window(window, oldest);
    while (read_year(&csv, year)) {
        /* A report has closed the series, so the next one begins with the window as it stands. */
        if (moved == 0) fit_stage(1, TAVIK_ROWS_ADD, window_years, window[0]);
        fit_stage(2, TAVIK_ROWS_ADD, 1, year);
        fit_stage(2, TAVIK_ROWS_DELETE, 1, window[oldest]);
        memcpy(window[oldest], year, sizeof year);
        oldest = (oldest + 1) % window_years;
        moved = (moved + 1) % years_between_reports;
        if (moved == 0) report_window(window, oldest);
    }
    if (moved > 0) report_window(window, oldest);
    fclose(csv.file);
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: %s TABLE MONTHS\n", argv[0]);
        return EXIT_FAILURE;
    }
    /* Errors shall neither end the process nor be printed by the library: check_fit does both. */
    tavik_error_options(TAVIK_SET_STOP, TAVIK_FATAL, 0, TAVIK_SET_STOP, TAVIK_TERMINAL, 0, TAVIK_SET_PRINT,
                        TAVIK_FATAL, 0, TAVIK_SET_PRINT, TAVIK_TERMINAL, 0, 0);
    fit_table(argv[1]);
    fit_stream(argv[2]);
    slide_window(argv[2]);
    tavik_free_allocated_memory();
    return EXIT_SUCCESS;
}
