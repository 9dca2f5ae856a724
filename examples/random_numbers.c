/*
 * Random numbers: the nine generators, a state that is saved in a file and taken up again, four threads on
 * substreams of their own, and a histogram of normal deviates.
 *
 *     random_numbers STATE_FILE
 *
 * STATE_FILE is written, read back, and left behind.
 */
#include <tavikstat.h>

#include <inttypes.h>
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

enum { seed = 20261121 };

static void show_generators(void)
{
    static const char *const kind[] = {"congruential, 16807",
                                       "16807, shuffled",
                                       "congruential, 397204094",
                                       "397204094, shuffled",
                                       "congruential, 950706376",
                                       "950706376, shuffled",
                                       "GFSR, lags 1563 and 96",
                                       "MT19937",
                                       "MT19937-64"};
    printf("%-26s %s\n", "Generator", "first three deviates");
    for (int generator = 1; generator <= 9; ++generator) {
        double u[3];
        const double not_filled = 0;
        /* Shuffle tables outlive a change of the generator; this one shall start from the seed. */
        tavik_d_random_table_set(&not_filled);
        tavik_random_option(generator);
        tavik_random_seed_set(seed);
        tavik_d_random_uniform(3, TAVIK_RETURN_USER, u, 0);
        printf("%d %-24s %.15f %.15f %.15f\n", generator, kind[generator - 1], u[0], u[1], u[2]);
    }
}

/* A program that is to go on where it stopped saves the generator's table: for generator 8 these are 625 words. */
static int save_and_restore(const char *file_name)
{
    enum { words = 625, n = 1000 };
    uint32_t *table, restored[words];
    double before[n], after[n];
    FILE *file;
    int same = 1;

    tavik_random_option(8);
    tavik_random_MT32_table_get(&table, 0);
    file = fopen(file_name, "w");
    for (int i = 0; file != NULL && i < words; ++i) fprintf(file, "%" PRIu32 "\n", table[i]);
    tavik_free(table);
    if (file == NULL || fclose(file) != 0) {
        perror(file_name);
        return 1;
    }
    tavik_d_random_normal(n, TAVIK_RETURN_USER, before, 0);

    file = fopen(file_name, "r");
    for (int i = 0; file != NULL && i < words; ++i) {
        if (fscanf(file, "%" SCNu32, &restored[i]) != 1) {
            fprintf(stderr, "%s: word %d is missing\n", file_name, i + 1);
            fclose(file);
            return 1;
        }
    }
    if (file == NULL) {
        perror(file_name);
        return 1;
    }
    fclose(file);
    tavik_random_MT32_table_set(restored);
    tavik_d_random_normal(n, TAVIK_RETURN_USER, after, 0);
    for (int i = 0; i < n; ++i) same = same && before[i] == after[i];
    printf("\n%d normal deviates after the state was read back from %s: %s\n", n, file_name,
           same ? "the same" : "DIFFERENT");
    return !same;
}

enum { n_threads = 4, draws = 100000 }; /* the length of a substream */

struct Share {
    int start;
    double pi;
};

/* The part of the unit square's points that lie in the circle. Each thread has a generator of its own. */
static void *estimate_pi(void *argument)
{
    struct Share *share = argument;
    double *u;
    int inside = 0;
    tavik_random_option(3);
    tavik_random_seed_set(share->start);
    u = tavik_d_random_uniform(draws, 0);
    for (int i = 0; i < draws; i += 2) inside += u[i] * u[i] + u[i + 1] * u[i + 1] < 1;
    tavik_free(u);
    share->pi = 4.0 * inside / (draws / 2);
    return NULL;
}

static int run_threads(void)
{
    pthread_t thread[n_threads];
    struct Share share[n_threads];
    int start = seed;
    double sum = 0;
    int in_place;

    tavik_random_option(3);
    for (int k = 0; k < n_threads; ++k) {
        share[k].start = start;
        start = tavik_random_substream_seed_get(start);
    }
    for (int k = 0; k < n_threads; ++k) {
        if (pthread_create(&thread[k], NULL, estimate_pi, &share[k]) != 0) {
            fprintf(stderr, "no thread\n");
            exit(1);
        }
    }
    printf("\nFour threads on substreams estimate pi:");
    for (int k = 0; k < n_threads; ++k) {
        pthread_join(thread[k], NULL);
        printf(" %.5f", share[k].pi);
        sum += share[k].pi;
    }
    printf(", together %.5f\n", sum / n_threads);

    /* The substreams lie one behind the other in the stream of the first seed. */
    tavik_random_seed_set(seed);
    for (int k = 0; k < n_threads; ++k) tavik_free(tavik_d_random_uniform(draws, 0));
    in_place = tavik_random_seed_get() == start;
    printf("After %d draws the single stream stands %s the next substream starts.\n", n_threads * draws,
           in_place ? "where" : "NOT where");
    return !in_place;
}

static void draw_histogram(void)
{
    enum { n = 100000, n_bins = 21 };
    int count[n_bins] = {0};
    double *height_cm;

    tavik_random_option(9);
    tavik_random_seed_set(seed);
    height_cm = tavik_d_random_normal(n, TAVIK_MEAN, 170.0, TAVIK_VARIANCE, 49.0, TAVIK_ZIGGURAT, 0);
    for (int i = 0; i < n; ++i) {
        const double bin = floor((height_cm[i] - 149) / 2);
        if (bin >= 0 && bin < n_bins) ++count[(int)bin];
    }
    tavik_free(height_cm);
    printf("\n%d normal deviates of mean 170 and standard deviation 7; a star is 250\n", n);
    for (int k = 0; k < n_bins; ++k) {
        printf("%d to %d %6d ", 149 + 2 * k, 151 + 2 * k, count[k]);
        for (int star = 250; star <= count[k]; star += 250) putchar('*');
        putchar('\n');
    }
}

int main(int argc, char **argv)
{
    int failed;
    if (argc != 2) {
        fprintf(stderr, "usage: %s STATE_FILE\n", argv[0]);
        return 2;
    }
    show_generators();
    failed = save_and_restore(argv[1]);
    failed = run_threads() || failed;
    draw_histogram();
    return failed;
}
