/*
 * K-means clustering: earthquakes grouped by where they happened, drawn on a map.
 *
 *     clusters EARTHQUAKES PICTURE
 *
 * EARTHQUAKES holds comma-separated numbers below a line of column names: latitude and longitude in degrees, depth
 * in kilometres, and others. PICTURE is written: an SVG map of the clusters.
 */
#include <tavikstat.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

enum { n_clusters = 5, n_variables = 3, most_quakes = 100000 };

static const char *const colours[n_clusters] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00"};

struct quake {
    double latitude, longitude, depth;
};

static void fail(const char *file, const char *reason)
{
    fprintf(stderr, "%s: %s\n", file, reason);
    exit(EXIT_FAILURE);
}

static struct quake *read_quakes(const char *name, int *n)
{
    FILE *file = fopen(name, "r");
    struct quake *quakes = malloc(most_quakes * sizeof *quakes);
    char line[256];
    if (file == NULL || quakes == NULL || fgets(line, sizeof line, file) == NULL)
        fail(name, "cannot be read");
    for (*n = 0; *n < most_quakes && fgets(line, sizeof line, file) != NULL; ++*n) {
        struct quake *q = &quakes[*n];
        if (sscanf(line, "%lf,%lf,%lf", &q->latitude, &q->longitude, &q->depth) != 3)
            fail(name, "a line does not begin with latitude, longitude and depth");
    }
    fclose(file);
    return quakes;
}

/* Places in units of 100 km, as if the surface were flat, so that distances are those in space. */
static double *places_of(const struct quake quakes[], int n)
{
    const double degree = 1.1119; /* of latitude; one of longitude is shorter away from the equator */
    const double pi = 3.141592653589793;
    double *x = malloc((size_t)n * n_variables * sizeof *x), mean_latitude = 0;
    if (x == NULL) fail("places", "there is no memory");
    for (int i = 0; i < n; ++i) mean_latitude += quakes[i].latitude / n;
    for (int i = 0; i < n; ++i) {
        x[i * n_variables] = quakes[i].latitude * degree;
        x[i * n_variables + 1] = quakes[i].longitude * degree * cos(mean_latitude * pi / 180);
        x[i * n_variables + 2] = quakes[i].depth / 100;
    }
    return x;
}

static void draw(const char *name, const double x[], const int cluster[], const double means[], int n)
{
    enum { width = 640, height = 720, margin = 30 };
    FILE *file = fopen(name, "w");
    double low[2], high[2];
    if (file == NULL) fail(name, "cannot be written");
    for (int j = 0; j < 2; ++j) {
        low[j] = high[j] = x[j];
        for (int i = 0; i < n; ++i) {
            low[j] = fmin(low[j], x[i * n_variables + j]);
            high[j] = fmax(high[j], x[i * n_variables + j]);
        }
    }
    const double scale =
        fmin((width - 2 * margin) / (high[1] - low[1]), (height - 2 * margin) / (high[0] - low[0]));
    fprintf(
        file,
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" font-family=\"sans-serif\">\n"
        "<title>Clusters of earthquakes; deep ones are small</title>\n"
        "<rect width=\"100%%\" height=\"100%%\" fill=\"#fff\"/>\n",
        width, height);
    for (int i = 0; i < n; ++i)
        fprintf(file, "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\" fill=\"%s\" fill-opacity=\"0.6\"/>\n",
                margin + scale * (x[i * n_variables + 1] - low[1]),
                margin + scale * (high[0] - x[i * n_variables]), 5 - 0.5 * x[i * n_variables + 2],
                colours[cluster[i] - 1]);
    for (int c = 0; c < n_clusters; ++c)
        fprintf(file,
                "<text x=\"%.1f\" y=\"%.1f\" font-size=\"26\" font-weight=\"bold\" text-anchor=\"middle\" "
                "stroke=\"#fff\" "
                "stroke-width=\"4\" paint-order=\"stroke\">%d</text>\n",
                margin + scale * (means[c * n_variables + 1] - low[1]),
                margin + scale * (high[0] - means[c * n_variables]) + 9, c + 1);
    fprintf(file, "</svg>\n");
    if (fclose(file) != 0) fail(name, "cannot be written");
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "Usage: %s EARTHQUAKES PICTURE\n", argv[0]);
        return EXIT_FAILURE;
    }
    int n;
    struct quake *quakes = read_quakes(argv[1], &n);
    double *x = places_of(quakes, n);

    tavik_random_option(9);
    tavik_random_seed_set(20261121); /* the same seeds in every run */
    double *seeds = tavik_d_cluster_seeds(n, n_variables, x, n_clusters, 0);
    double *means, *squares;
    int *counts, n_iterations, *history;
    if (seeds == NULL) fail(argv[1], tavik_error_message());
    int *cluster = tavik_d_cluster_k_means(n, n_variables, x, n_clusters, seeds, TAVIK_CLUSTER_MEANS, &means,
                                           TAVIK_CLUSTER_SSQ, &squares, TAVIK_CLUSTER_COUNTS, &counts,
                                           TAVIK_CLUSTER_HISTORY, &n_iterations, &history, 0);
    if (cluster == NULL) fail(argv[1], tavik_error_message());

    printf("%d earthquakes in %d clusters, found in %d iterations\n\n"
           "cluster   quakes   latitude   longitude   depth, km   distance from centre, km\n",
           n, n_clusters, n_iterations);
    double within = 0;
    for (int c = 0; c < n_clusters; ++c) {
        double latitude = 0, longitude = 0;
        for (int i = 0; i < n; ++i) {
            if (cluster[i] != c + 1) continue;
            latitude += quakes[i].latitude / counts[c];
            longitude += quakes[i].longitude / counts[c];
        }
        printf("%7d %8d %10.2f %11.2f %11.0f %26.0f\n", c + 1, counts[c], latitude, longitude,
               100 * means[c * n_variables + 2], 100 * sqrt(squares[c] / counts[c]));
        within += squares[c];
    }
    printf("\nSum of squares within clusters, (100 km)^2: %.2f\n", within);
    draw(argv[2], x, cluster, means, n);
    printf("Drawn in %s\n", argv[2]);

    tavik_free(history);
    tavik_free(counts);
    tavik_free(squares);
    tavik_free(means);
    tavik_free(cluster);
    tavik_free(seeds);
    free(x);
    free(quakes);
    return EXIT_SUCCESS;
}
