/*
 * Feed-forward networks: a classifier of irises, its first weights by four methods, a file and a drawing of it.
 *
 *     networks FLOWERS NETWORK PICTURE
 *
 * FLOWERS holds comma-separated lines of four measurements and a species, below a line of column names. NETWORK and
 * PICTURE are written: the network as text, and an SVG drawing of it.
 */
#include <tavikstat.h>

#include <float.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { n_inputs = 4, n_hidden = 5, n_species = 3, most_flowers = 1000, name_size = 32 };

static const char *const activations[] = {"linear", "logistic", "tanh", "squash"};

struct flowers {
    int n;
    double x[most_flowers * n_inputs];
    int species[most_flowers];
    char columns[n_inputs][name_size];
    char names[n_species][name_size];
};

static void fail(const char *what, const char *reason)
{
    fprintf(stderr, "%s: %s\n", what, reason);
    exit(EXIT_FAILURE);
}

/* To be called after each call of the library, whose printer is off (see main). */
static void check(const char *what)
{
    const int type = tavik_error_type();
    if (type != TAVIK_FATAL && type != TAVIK_TERMINAL) return;
    char *text = tavik_error_message();
    fail(what, text != NULL ? text : "there is no memory");
}

/* The number of a species; one that has not been seen yet gets the next. */
static int species_of(struct flowers *f, int *n_names, const char *name)
{
    int k = 0;
    while (k < *n_names && strcmp(f->names[k], name) != 0) ++k;
    if (k == n_species) fail(name, "this species is one too many");
    if (k == *n_names) strcpy(f->names[(*n_names)++], name);
    return k;
}

static void read_flowers(const char *file_name, struct flowers *f)
{
    FILE *file = fopen(file_name, "r");
    char line[256], name[name_size];
    int n_names = 0;
    if (file == NULL || fgets(line, sizeof line, file) == NULL) fail(file_name, "cannot be read");
    if (sscanf(line, "%31[^,],%31[^,],%31[^,],%31[^,],", f->columns[0], f->columns[1], f->columns[2],
               f->columns[3]) != n_inputs)
        fail(file_name, "there are not four columns before the species");
    for (f->n = 0; fgets(line, sizeof line, file) != NULL; ++f->n) {
        double *x = &f->x[f->n * n_inputs];
        if (f->n == most_flowers) fail(file_name, "there are too many flowers");
        if (sscanf(line, "%lf,%lf,%lf,%lf,%31[^,\r\n]", &x[0], &x[1], &x[2], &x[3], name) != n_inputs + 1)
            fail(file_name, "a line is not four numbers and a species");
        f->species[f->n] = species_of(f, &n_names, name);
    }
    if (ferror(file) || n_names != n_species) fail(file_name, "there are not flowers of three species");
    fclose(file);
}

static tavik_d_network *build(void)
{
    const int hidden[n_hidden] = {TAVIK_TANH, TAVIK_TANH, TAVIK_TANH, TAVIK_TANH, TAVIK_TANH};
    const int output[n_species] = {TAVIK_LOGISTIC, TAVIK_LOGISTIC, TAVIK_LOGISTIC};
    tavik_d_network *network = tavik_d_mlff_network_init(n_inputs, n_species);
    check("A network");
    tavik_d_mlff_network(network, TAVIK_CREATE_HIDDEN_LAYER, n_hidden, TAVIK_LINK_ALL, 0);
    check("The hidden layer");
    tavik_d_mlff_network(network, TAVIK_ACTIVATION_FCN, 1, hidden, 0);
    check("Activation of the hidden layer");
    tavik_d_mlff_network(network, TAVIK_ACTIVATION_FCN, 2, output, 0);
    check("Activation of the outputs");
    printf("A network of %d layers, %d nodes and %d links\n", network->n_layers, network->n_nodes,
           network->n_links);
    return network;
}

static double potential(const tavik_d_network *network, int node, const double inputs[])
{
    const tavik_d_node *p = &network->nodes[node];
    double sum = p->bias;
    for (int k = 0; k < p->n_inLinks; ++k) {
        const tavik_d_link *link = &network->links[p->inLinks[k]];
        sum += link->weight * inputs[link->from_node];
    }
    return sum;
}

/* Mean and standard deviation of a node's potentials, and the part of their squares that lies between species. */
static void describe(const tavik_d_network *network, int node, const struct flowers *f, double result[3])
{
    double mean = 0, total = 0, between = 0, sums[n_species] = {0};
    int counts[n_species] = {0};
    for (int i = 0; i < f->n; ++i) {
        const double v = potential(network, node, &f->x[i * n_inputs]);
        mean += v / f->n;
        sums[f->species[i]] += v;
        ++counts[f->species[i]];
    }
    for (int i = 0; i < f->n; ++i) total += pow(potential(network, node, &f->x[i * n_inputs]) - mean, 2);
    for (int s = 0; s < n_species; ++s) between += counts[s] * pow(sums[s] / counts[s] - mean, 2);
    result[0] = fabs(mean) < 0.0005 ? 0 : mean; /* lest it be printed as -0.000 */
    result[1] = sqrt(total / (f->n - 1));
    result[2] = 100 * between / total;
}

static void print_potentials(const char *method, const tavik_d_network *network, const struct flowers *f)
{
    static const char *const rows[3] = {"mean", "standard deviation", "between species, %"};
    const tavik_layer *layer = &network->layers[1];
    double results[n_hidden][3];
    for (int k = 0; k < n_hidden; ++k) describe(network, layer->nodes[k], f, results[k]);
    for (int row = 0; row < 3; ++row) {
        printf("%s%-22s%-20s", row == 0 ? "\n" : "", row == 0 ? method : "", rows[row]);
        for (int k = 0; k < n_hidden; ++k) printf("%9.*f", row < 2 ? 3 : 1, results[k][row]);
        putchar('\n');
    }
}

/* Leaves the network with the weights of the last method. */
static void initialize(tavik_d_network *network, const struct flowers *f)
{
    static const struct {
        const char *name;
        int code;
    } methods[] = {{"equal weights", TAVIK_EQUAL_WEIGHTS},
                   {"random weights", TAVIK_RANDOM_WEIGHTS},
                   {"principal components", TAVIK_PRINCIPAL_COMPONENT_WEIGHTS},
                   {"discriminant", TAVIK_DISCRIMINANT_WEIGHTS}};
    printf("\nPotentials of the hidden layer for %d flowers\n\n%-42s", f->n, "");
    for (int k = 0; k < n_hidden; ++k) printf("   node %d", network->layers[1].nodes[k]);
    putchar('\n');
    tavik_random_option(9);
    tavik_random_seed_set(20261121); /* the same weights in every run */
    for (size_t m = 0; m < sizeof methods / sizeof methods[0]; ++m) {
        double *weights =
            tavik_d_mlff_initialize_weights(network, f->n, 0, n_inputs, NULL, f->x, TAVIK_METHOD,
                                            methods[m].code, TAVIK_CLASSIFICATION, f->species, 0);
        check(methods[m].name);
        tavik_free(weights); /* the network has them, too */
        print_potentials(methods[m].name, network, f);
    }
}

static tavik_d_link *find_link(const tavik_d_network *network, int to, int from)
{
    const tavik_d_node *node = &network->nodes[to];
    for (int k = 0; k < node->n_inLinks; ++k) {
        tavik_d_link *link = &network->links[node->inLinks[k]];
        if (link->from_node == from) return link;
    }
    fail("The network", "a link is missing");
    return NULL;
}

static void print_weights(const tavik_d_network *network, const struct flowers *f)
{
    const int *nodes = network->layers[1].nodes;
    printf("\nDiscriminant weights of the hidden layer\n\n%-16s", "");
    for (int k = 0; k < n_hidden; ++k) printf("   node %d", nodes[k]);
    for (int j = 0; j < n_inputs; ++j) {
        printf("\n%-16s", f->columns[j]);
        for (int k = 0; k < n_hidden; ++k) printf("%9.3f", find_link(network, nodes[k], j)->weight);
    }
    printf("\n%-16s", "bias");
    for (int k = 0; k < n_hidden; ++k) printf("%9.3f", network->nodes[nodes[k]].bias);
    putchar('\n');
}

static int same_list(int n, const int a[], const int b[])
{
    return n == 0 || memcmp(a, b, (size_t)n * sizeof *a) == 0;
}

/* A file keeps 15 digits of a real number: the error may be half a unit of the last. */
static int same_real(double a, double b, double *largest_error)
{
    const double error = a == b ? 0 : fabs(a - b) / fmax(fabs(a), fabs(b));
    *largest_error = fmax(*largest_error, error);
    return error <= 5e-15 + DBL_EPSILON;
}

static int same_network(const tavik_d_network *a, const tavik_d_network *b, double *error)
{
    int same = a->n_inputs == b->n_inputs && a->n_outputs == b->n_outputs && a->n_layers == b->n_layers &&
               a->n_links == b->n_links && a->n_nodes == b->n_nodes && a->next_link == b->next_link;
    for (int l = 0; same && l < a->n_layers; ++l) {
        const tavik_layer *p = &a->layers[l], *q = &b->layers[l];
        same = p->n_nodes == q->n_nodes && same_list(p->n_nodes, p->nodes, q->nodes);
    }
    for (int k = 0; same && k < a->n_links; ++k) {
        const tavik_d_link *p = &a->links[k], *q = &b->links[k];
        same = p->to_node == q->to_node && p->from_node == q->from_node &&
               same_real(p->weight, q->weight, error) && same_real(p->gradient, q->gradient, error);
    }
    for (int k = 0; same && k < a->n_nodes; ++k) {
        const tavik_d_node *p = &a->nodes[k], *q = &b->nodes[k];
        same = p->layer_id == q->layer_id && p->activationFcn == q->activationFcn &&
               p->n_inLinks == q->n_inLinks && same_list(p->n_inLinks, p->inLinks, q->inLinks) &&
               p->n_outLinks == q->n_outLinks && same_list(p->n_outLinks, p->outLinks, q->outLinks) &&
               same_real(p->bias, q->bias, error) && same_real(p->param, q->param, error);
    }
    return same;
}

static void keep(tavik_d_network *network, const char *name)
{
    double error = 0;
    tavik_d_mlff_network_write(network, name, 0);
    check(name);
    tavik_d_network *copy = tavik_d_mlff_network_read(name, 0);
    check(name);
    const int same = same_network(network, copy, &error);
    printf("\nWritten to %s and read back: %s.\n", name, same ? "the same, field by field" : "NOT the same");
    printf("Real numbers are kept with 15 digits; the largest relative error is %.1e.\n", error);
    tavik_d_mlff_network_free(copy);
    if (!same) fail(name, "the network was not kept");
}

/* A file that is no network is an error to go on after. */
static void read_other(const char *name)
{
    tavik_d_network *network = tavik_d_mlff_network_read(name, 0);
    if (network != NULL) fail(name, "this is no network, but was read as one");
    char *text = tavik_error_message();
    printf("\n%s is no network. Error %ld: %s\n", name, tavik_error_code(), text != NULL ? text : "");
    tavik_free(text);
}

/* A link that is removed and made again is the last one, and its weight is to be set again. */
static void relink(tavik_d_network *network, int to, int from)
{
    const int before = network->n_links;
    int without, with;
    const double weight = find_link(network, to, from)->weight;
    tavik_d_mlff_network(network, TAVIK_REMOVE_LINK, to, from, TAVIK_N_LINKS, &without, 0);
    check("Removing a link");
    tavik_d_mlff_network(network, TAVIK_LINK_NODE, to, from, TAVIK_N_LINKS, &with, 0);
    check("Making a link");
    tavik_d_link *link = find_link(network, to, from);
    link->weight = weight;
    printf("\nLink from node %d to node %d removed and made again: %d, %d, %d links; it is now number %d.\n",
           from, to, before, without, with, (int)(link - network->links));
}

/* ---- The drawing ---- */

enum { width = 900, height = 600, side = 190, top = 90, bottom = 80, radius = 20 };

static const char *const positive = "#0072b2", *const negative = "#d55e00";

struct picture {
    FILE *file;
    const tavik_d_network *network;
    double largest; /* size of a weight */
};

struct place {
    double x, y;
};

static struct place place_of(const tavik_d_network *network, int node)
{
    const int layer = network->nodes[node].layer_id;
    const tavik_layer *column = &network->layers[layer];
    return (struct place){side + (double)(width - 2 * side) / (network->n_layers - 1) * layer,
                          top + (double)(height - top - bottom) / column->n_nodes *
                                    (node - column->nodes[0] + 0.5)};
}

static void draw_text(struct picture *p, struct place at, const char *anchor, const char *style,
                      const char *text)
{
    fprintf(p->file, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\" %s>%s</text>\n", at.x, at.y, anchor,
            style, text);
}

/* Width stands for the size of the weight, colour for its sign. */
static void draw_line(struct picture *p, struct place from, struct place to, double weight)
{
    fprintf(p->file,
            "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" stroke-width=\"%.2f\" "
            "stroke-opacity=\"0.8\"><title>%.4f</title></line>\n",
            from.x, from.y, to.x, to.y, weight < 0 ? negative : positive,
            0.5 + 7.5 * fabs(weight) / p->largest, weight);
}

static void draw_links(struct picture *p)
{
    for (int k = 0; k < p->network->n_links; ++k) {
        const tavik_d_link *link = &p->network->links[k];
        draw_line(p, place_of(p->network, link->from_node), place_of(p->network, link->to_node),
                  link->weight);
    }
}

static void draw_nodes(struct picture *p, const struct flowers *f)
{
    const tavik_d_network *network = p->network;
    for (int k = 0; k < network->n_nodes; ++k) {
        const struct place at = place_of(network, k);
        const int output = k - (network->n_nodes - network->n_outputs);
        char number[16];
        snprintf(number, sizeof number, "%d", k);
        fprintf(p->file,
                "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"%d\" fill=\"#fff\" stroke=\"#333\" "
                "stroke-width=\"1.5\"><title>bias %.4f</title></circle>\n",
                at.x, at.y, radius, network->nodes[k].bias);
        draw_text(p, (struct place){at.x, at.y + 5}, "middle", "font-weight=\"bold\"", number);
        if (k < network->n_inputs)
            draw_text(p, (struct place){at.x - radius - 12, at.y + 5}, "end", "", f->columns[k]);
        if (output >= 0)
            draw_text(p, (struct place){at.x + radius + 12, at.y + 5}, "start", "font-style=\"italic\"",
                      f->names[output]);
    }
}

static void draw_headings(struct picture *p)
{
    static const char *const roles[] = {"inputs", "hidden", "outputs"};
    const tavik_d_network *network = p->network;
    draw_text(p, (struct place){width / 2.0, 34}, "middle", "font-size=\"20\" font-weight=\"bold\"",
              "Three species of iris: discriminant weights before training");
    for (int l = 0; l < network->n_layers; ++l) {
        const int first = network->layers[l].nodes[0];
        char text[64];
        snprintf(text, sizeof text, "%s: %s", roles[l], activations[network->nodes[first].activationFcn]);
        draw_text(p, (struct place){place_of(network, first).x, top - 16}, "middle", "fill=\"#666\"",
                  l == 0 ? roles[l] : text);
    }
}

static void draw_legend(struct picture *p)
{
    static const double parts[] = {-1, -0.5, -0.1, 0.1, 0.5, 1};
    const double y = height - 34, step = 125, length = 40;
    draw_text(p, (struct place){60, y + 5}, "start", "fill=\"#666\"", "weight");
    for (int k = 0; k < 6; ++k) {
        const struct place from = {140 + step * k, y}, to = {140 + step * k + length, y};
        char text[16];
        snprintf(text, sizeof text, "%.2f", parts[k] * p->largest);
        draw_line(p, from, to, parts[k] * p->largest);
        draw_text(p, (struct place){to.x + 8, y + 5}, "start", "", text);
    }
}

static void draw(const tavik_d_network *network, const struct flowers *f, const char *name)
{
    struct picture p = {fopen(name, "w"), network, 0};
    if (p.file == NULL) fail(name, "cannot be written");
    for (int k = 0; k < network->n_links; ++k) p.largest = fmax(p.largest, fabs(network->links[k].weight));
    fprintf(p.file,
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
            "font-family=\"sans-serif\" font-size=\"15\" fill=\"#000\">\n"
            "<rect width=\"100%%\" height=\"100%%\" fill=\"#fff\"/>\n",
            width, height);
    draw_headings(&p);
    draw_links(&p);
    draw_nodes(&p, f);
    draw_legend(&p);
    fprintf(p.file, "</svg>\n");
    const int broken = ferror(p.file);
    if (fclose(p.file) != 0 || broken) fail(name, "cannot be written");
    printf("\nDrawn in %s\n", name);
}

int main(int argc, char **argv)
{
    static struct flowers flowers;
    if (argc != 4) {
        fprintf(stderr, "usage: %s FLOWERS NETWORK PICTURE\n", argv[0]);
        return EXIT_FAILURE;
    }
    /* Errors shall neither end the process nor be printed by the library: check does both. */
    tavik_error_options(TAVIK_SET_STOP, TAVIK_FATAL, 0, TAVIK_SET_STOP, TAVIK_TERMINAL, 0, TAVIK_SET_PRINT,
                        TAVIK_FATAL, 0, TAVIK_SET_PRINT, TAVIK_TERMINAL, 0, 0);
    read_flowers(argv[1], &flowers);
    tavik_d_network *network = build();
    initialize(network, &flowers);
    print_weights(network, &flowers);
    keep(network, argv[2]);
    read_other(argv[1]);
    relink(network, network->layers[1].nodes[0], 2);
    draw(network, &flowers, argv[3]);
    tavik_d_mlff_network_free(network);
    tavik_free_allocated_memory();
    return EXIT_SUCCESS;
}
