/*
 * Describes every column of a comma-separated file: moments, extremes, confidence limits, median and robust
 * scale.
 *
 *     describe FILE
 *
 * The first line holds the names of the columns. Cells are numbers; an empty cell or NA is a missing value.
 * Any cell may stand in double quotes, in which "" is a quote. Blank lines are skipped.
 */
#include <tavikstat.h>

#include <ctype.h>
#include <limits.h>
#include <math.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The rows of the result, in their order. */
static const char *const labels[] = {"Mean",
                                     "Variance",
                                     "Standard deviation",
                                     "Skewness",
                                     "Excess kurtosis",
                                     "Minimum",
                                     "Maximum",
                                     "Range",
                                     "Coefficient of variation",
                                     "Count",
                                     "Mean, lower 95 % limit",
                                     "Mean, upper 95 % limit",
                                     "Variance, lower 95 % limit",
                                     "Variance, upper 95 % limit",
                                     "Median",
                                     "Median absolute deviation",
                                     "Robust scale"};
enum { n_labels = sizeof labels / sizeof labels[0] };

/* A file that is read cell by cell. */
struct reader {
    FILE *file;
    const char *name;
    long line;
    char *cell; /* text of the last cell */
    size_t length, capacity;
};

struct table {
    char **names;
    double *values; /* by rows */
    size_t n_columns, n_rows, capacity;
};

static void *resize(void *memory, size_t count, size_t size)
{
    void *resized = count <= SIZE_MAX / size ? realloc(memory, count * size) : NULL;
    if (resized == NULL) {
        fputs("describe: out of memory\n", stderr);
        exit(EXIT_FAILURE);
    }
    return resized;
}

/* Says what is wrong with the file and where, and gives up. */
static void reject(const struct reader *reader, const char *format, ...)
{
    va_list arguments;
    fprintf(stderr, "%s:%ld: ", reader->name, reader->line);
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fputc('\n', stderr);
    exit(EXIT_FAILURE);
}

static void append(struct reader *reader, int c)
{
    if (reader->length == reader->capacity) {
        reader->capacity = 2 * reader->capacity + 64;
        reader->cell = resize(reader->cell, reader->capacity, 1);
    }
    reader->cell[reader->length++] = (char)c;
}

/* Reads a cell without its quotes and the blanks around it. Returns what ended it: ',', '\n' or EOF. */
static int read_cell(struct reader *reader)
{
    const long first_line = reader->line;
    int quoted = 0, c;
    reader->length = 0;
    while ((c = getc(reader->file)) != EOF) {
        if (!quoted && (c == ',' || c == '\n')) break;
        if (c == '\n') ++reader->line;
        if (c == '"') {
            const int next = quoted ? getc(reader->file) : EOF;
            if (next != '"') {
                ungetc(next, reader->file);
                quoted = !quoted;
                continue;
            }
        }
        if (reader->length > 0 || !isspace(c)) append(reader, c);
    }
    if (ferror(reader->file)) reject(reader, "the file cannot be read");
    if (quoted) {
        reader->line = first_line;
        reject(reader, "a quote is opened here and never closed");
    }
    while (reader->length > 0 && isspace((unsigned char)reader->cell[reader->length - 1])) --reader->length;
    append(reader, '\0');
    return c;
}

static double cell_value(const struct reader *reader, const char *column)
{
    char *end;
    double value;
    if (reader->cell[0] == '\0' || strcmp(reader->cell, "NA") == 0) return NAN;
    value = strtod(reader->cell, &end);
    if (end != reader->cell + reader->length - 1)
        reject(reader, "\"%.40s\" in column \"%s\" is not a number", reader->cell, column);
    return value;
}

static int read_names(struct reader *reader, struct table *table)
{
    int end;
    do {
        end = read_cell(reader);
        table->names = resize(table->names, table->n_columns + 1, sizeof *table->names);
        table->names[table->n_columns] = resize(NULL, reader->length, 1);
        memcpy(table->names[table->n_columns++], reader->cell, reader->length);
    } while (end == ',');
    return end;
}

/* Reads a line behind those that the table holds. */
static int read_row(struct reader *reader, struct table *table)
{
    const size_t used = table->n_rows * table->n_columns;
    size_t n_cells = 0;
    int end;
    if (used + table->n_columns > table->capacity) {
        table->capacity = 2 * table->capacity + table->n_columns;
        table->values = resize(table->values, table->capacity, sizeof *table->values);
    }
    do {
        end = read_cell(reader);
        if (n_cells == 0 && end != ',' && reader->cell[0] == '\0') return end; /* a blank line */
        if (n_cells < table->n_columns)
            table->values[used + n_cells] = cell_value(reader, table->names[n_cells]);
        ++n_cells;
    } while (end == ',');
    if (n_cells != table->n_columns)
        reject(reader, "the line has %zu cells, but the first line names %zu columns", n_cells,
               table->n_columns);
    ++table->n_rows;
    return end;
}

static struct table read_table(const char *name)
{
    struct reader reader = {.name = name, .line = 1};
    struct table table = {0};
    int end;
    reader.file = fopen(name, "r");
    if (reader.file == NULL) {
        perror(name);
        exit(EXIT_FAILURE);
    }
    end = read_names(&reader, &table);
    while (end != EOF) {
        ++reader.line;
        end = read_row(&reader, &table);
    }
    if (table.n_rows == 0) reject(&reader, "there are no data below the line of names");
    if (table.n_rows > INT_MAX || table.n_columns > INT_MAX) reject(&reader, "there are too many data");
    fclose(reader.file);
    free(reader.cell);
    return table;
}

static void print_number(int width, double value)
{
    if (isnan(value)) printf("%*s", width, "-");
    else printf("%*.6g", width, value);
}

/* Prints the statistics, as many columns side by side as a line holds. */
static void print_statistics(const struct table *table, const double statistics[])
{
    enum { label_width = 28, least_width = 14, name_width = 30, line_width = 110 };
    size_t first = 0;
    while (first < table->n_columns) {
        int width[line_width / least_width];
        int used = label_width;
        size_t n = 0;
        printf("%s%-*s", first > 0 ? "\n" : "", label_width, "");
        while (first + n < table->n_columns) {
            char heading[name_width];
            const int length =
                snprintf(heading, sizeof heading, "  %zu %s", first + n + 1, table->names[first + n]);
            width[n] = length < least_width ? least_width : length < name_width ? length : name_width - 1;
            if (used + width[n] > line_width) break;
            printf("%*s", width[n], heading);
            used += width[n++];
        }
        for (int row = 0; row < n_labels; ++row) {
            printf("\n%-*s", label_width, labels[row]);
            for (size_t j = 0; j < n; ++j)
                print_number(width[j], statistics[(size_t)row * table->n_columns + first + j]);
        }
        putchar('\n');
        first += n;
    }
}

int main(int argc, char **argv)
{
    struct table table;
    double *statistics;
    if (argc != 2) {
        fprintf(stderr, "usage: %s FILE\n", argv[0]);
        return EXIT_FAILURE;
    }
    table = read_table(argv[1]);
    printf("%s: %zu rows, %zu columns\n", argv[1], table.n_rows, table.n_columns);

    /* Warnings belong to the report, so they go where the table goes. They are printed during the call. */
    tavik_output_file(TAVIK_SET_ERROR_FILE, stdout, 0);
    statistics = tavik_d_simple_statistics((int)table.n_rows, (int)table.n_columns, table.values,
                                           TAVIK_MEDIAN_AND_SCALE, 0);
    print_statistics(&table, statistics);

    tavik_free(statistics);
    for (size_t j = 0; j < table.n_columns; ++j) free(table.names[j]);
    free(table.names);
    free(table.values);
    return EXIT_SUCCESS;
}
