// Networks in text files: the bytes, what is read back from them, what is refused and how, and what a failure leaves.
#include "datamining/networks.hpp"

#include <clocale>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sys/resource.h>

namespace {

using namespace networks;
namespace files = std::filesystem;

// Two inputs, two perceptrons and an output, with all links and values that both precisions hold.
const string sample = "1.000000\n"
                      "2 1 3 6 5 6\n"
                      "2 0 1\n"
                      "2 2 3\n"
                      "1 4\n"
                      "0 2                  0.5                    1\n"
                      "0 3                -1.25                    1\n"
                      "1 2              1048576                    1\n"
                      "1 3       0.000244140625                    1\n"
                      "2 4                    0                   -2\n"
                      "3 4                   -0                    1\n"
                      "0 0 2 0                    0                    1\n"
                      "0 1\n"
                      "0 0 2 0                    0                    1\n"
                      "2 3\n"
                      "1 2 1 2                 0.75                    1\n"
                      "0 2\n"
                      "4\n"
                      "1 2 1 3                 -0.5                  1.5\n"
                      "1 3\n"
                      "5\n"
                      "2 2 0 0                    9                    1\n"
                      "4 5\n";

// A folder of its own for each test, gone when the test ends.
template <class Real> struct NetworkFiles : NetworkTest {
    using R = Routines<Real>;
    string folder = (files::temp_directory_path() / "networks_XXXXXX").string(), name;

    NetworkFiles()
    {
        if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("no folder " + folder);
        name = folder + "/net";
    }
    ~NetworkFiles() override
    {
        files::remove_all(folder);
    }

    static Owned<Real> sample_network()
    {
        auto net = make<Real>(2, 1);
        const Real weights[] = {Real(0.5), Real(-1.25), 1048576, Real(0.000244140625), 0, Real(-0.0)},
                   bias[] = {Real(0.75), Real(-0.5)}, last[] = {9};
        const int codes[] = {2, 3};
        R::edit(net.get(), TAVIK_CREATE_HIDDEN_LAYER, 2, TAVIK_LINK_ALL, TAVIK_WEIGHTS, weights, TAVIK_BIAS,
                1, bias, TAVIK_ACTIVATION_FCN, 1, codes, 0);
        R::edit(net.get(), TAVIK_BIAS, 2, last, 0);
        net->links[4].gradient = -2;
        net->nodes[3].param = Real(1.5);
        return net;
    }

    string written(const Network<Real> &net)
    {
        R::write(const_cast<Network<Real> *>(&net), name.c_str(), 0);
        EXPECT_EQ(tavik_error_code(), 0);
        return contents(name);
    }
    static string contents(const string &of)
    {
        std::ifstream file(of, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // What reading this text leaves, and the network.
    std::pair<string, Owned<Real>> read(const string &bytes, const string &kinds = "")
    {
        std::ofstream(name, std::ios::binary) << bytes;
        Owned<Real> net;
        const string outcome = capture::outcome([&] { net.reset(R::read(name.c_str(), 0)); }, kinds);
        EXPECT_EQ(net == nullptr, outcome.substr(0, 3) != "0 0") << outcome;
        // A stream of ours is read in another way, with the same result.
        FILE *stream = std::fopen(name.c_str(), "r");
        Owned<Real> streamed(R::read(nullptr, TAVIK_FILE, stream, 0));
        EXPECT_EQ(text(tavik_error_type(), tavik_error_code()), outcome.substr(0, outcome.find(' ', 2)))
            << "from a stream: " << bytes.substr(0, 300);
        std::fclose(stream);
        return {outcome, std::move(net)};
    }
};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(NetworkFiles, Reals);

TYPED_TEST(NetworkFiles, HaveExactlyTheseBytesAndGiveTheNetworkBack)
{
    const auto net = this->sample_network();
    EXPECT_EQ(this->written(*net), sample);
    const auto [outcome, same] = this->read(sample);
    ASSERT_EQ(outcome, "0 0");
    EXPECT_EQ(Record(*same), Record(*net));
    EXPECT_TRUE(std::signbit(same->links[5].weight));
    // It can be edited like any other.
    Routines<TypeParam>::edit(same.get(), TAVIK_LINK_NODE, 4, 0, 0);
    Routines<TypeParam>::edit(same.get(), TAVIK_REMOVE_LINK, 4, 3, 0);
    EXPECT_EQ(Record(*same).nodes[4].in, (std::vector<int>{4, 5}));
    EXPECT_EQ(same->links[5].from_node, 0);
}

// Numbers as the C library writes them with "%20.15g", and networks of any shape. What has been read is written with
// the same bytes; float comes back exactly, double to 15 digits.
TYPED_TEST(NetworkFiles, GiveAnyNetworkBack)
{
    using Real = TypeParam;
    using Limits = std::numeric_limits<Real>;
    const Real values[] = {Real(1) / 3,         Real(-2e9) / 7,    Limits::max() / 2, Limits::lowest() / 2,
                           Limits::min(),       Real(123456789.5), Real(1e15),        Real(1e-5),
                           Real(9.9999e20) / 3, Limits::epsilon(), Real(0.1),         Real(-99999)};
    for (unsigned program = 0; program < 100; ++program) {
        std::mt19937 bits(program);
        const auto upto = [&bits](int n) { return static_cast<int>(bits() % (n + 1)); };
        const auto net = make<Real>(1 + upto(4), 1 + upto(4));
        for (int layers = upto(3); layers > 0; --layers)
            Routines<Real>::edit(net.get(), TAVIK_CREATE_HIDDEN_LAYER, 1 + upto(12), 0);
        if (upto(3) == 0) Routines<Real>::edit(net.get(), TAVIK_LINK_ALL, 0);
        for (int i = upto(60); i > 0; --i)
            Routines<Real>::edit(net.get(), upto(3) ? TAVIK_LINK_NODE : TAVIK_REMOVE_LINK, upto(net->n_nodes),
                                 upto(net->n_nodes), 0);
        const auto value = [&] { return values[bits() % std::size(values)]; };
        for (int k = 0; k < net->n_links; ++k)
            net->links[k].weight = value(), net->links[k].gradient = value();
        for (int i = 0; i < net->n_nodes; ++i) net->nodes[i].bias = value(), net->nodes[i].param = value();

        const string bytes = this->written(*net);
        for (int k = 0; k < net->n_links; ++k) {
            char line[200];
            std::snprintf(line, sizeof line, "\n%d %d %20.15g %20.15g\n", net->links[k].from_node,
                          net->links[k].to_node, double{net->links[k].weight},
                          double{net->links[k].gradient});
            ASSERT_NE(bytes.find(line), string::npos) << line << "not in\n" << bytes;
        }
        const auto [outcome, same] = this->read(bytes);
        ASSERT_EQ(outcome, "0 0") << bytes;
        ASSERT_EQ(this->written(*same), bytes);
        Record due(*net), seen(*same);
        const auto close = [](double &is, double &was) {
            EXPECT_NEAR(is, was, 5.1e-15 * std::fabs(was));
            if (sizeof(Real) == sizeof(double)) is = was;
        };
        ASSERT_EQ(seen.links.size(), due.links.size());
        ASSERT_EQ(seen.nodes.size(), due.nodes.size());
        for (std::size_t k = 0; k < due.links.size(); ++k) {
            close(seen.links[k].weight, due.links[k].weight);
            close(seen.links[k].gradient, due.links[k].gradient);
        }
        for (std::size_t i = 0; i < due.nodes.size(); ++i) {
            close(seen.nodes[i].bias, due.nodes[i].bias);
            close(seen.nodes[i].param, due.nodes[i].param);
        }
        ASSERT_EQ(seen, due);
    }
}

// A file made by others may hold links twice, and lists in any order.
TYPED_TEST(NetworkFiles, MayHoldLinksTwice)
{
    using R = Routines<TypeParam>;
    const string twice = "1.0\n2 1 2 4 3 4\n2 0 1\n1 2\n0 2 5 1\n0 2 6 1\n1 2 7 1\n0 2 8 1\n"
                         "0 0 3 0 0 1\n3 0 1\n0 0 1 0 0 1\n2\n1 4 0 0 0 1\n2 3 1 0\n";
    const auto [outcome, net] = this->read(twice);
    ASSERT_EQ(outcome, "0 0");
    EXPECT_EQ(this->written(*net).substr(9, 11), "2 1 2 4 3 4");
    R::edit(net.get(), TAVIK_LINK_NODE, 2, 0, 0);
    EXPECT_EQ(tavik_error_code(), 40096);
    for (const std::vector<double> &due : {std::vector<double>{5, 6, 7}, {5, 7}}) { // the last one goes first
        R::edit(net.get(), TAVIK_REMOVE_LINK, 2, 0, 0);
        const Record seen(*net);
        std::vector<double> weights;
        for (const auto &link : seen.links) weights.push_back(link.weight);
        EXPECT_EQ(weights, due);
        for (int i = 0; i < 3; ++i) {
            for (int k : seen.nodes[i].in) EXPECT_EQ(seen.links[k].to, i);
            for (int k : seen.nodes[i].out) EXPECT_EQ(seen.links[k].from, i);
        }
        EXPECT_EQ(seen.nodes[2].in.size(), due.size());
        EXPECT_EQ(seen.nodes[0].out.size(), due.size() - 1);
    }
}

// Blanks and line breaks may stand anywhere, and numbers in any form that scanf takes.
TYPED_TEST(NetworkFiles, MayBeLaidOutFreely)
{
    string loose = sample;
    for (char &c : loose) {
        if (c == '\n') c = '\t';
    }
    const auto expect_sample = [this](string bytes, const string &what, const string &by) {
        bytes.replace(bytes.find(what), what.size(), by);
        const auto [outcome, net] = this->read(bytes);
        ASSERT_EQ(outcome, "0 0") << bytes;
        EXPECT_EQ(Record(*net), Record(*this->sample_network())) << bytes;
    };
    expect_sample(loose, "1.000000", " \r\n 1");
    expect_sample(sample, "1.000000", "+1.0");
    expect_sample(sample, "2 1 3", "+2 01 3\n\n");
    expect_sample(sample, "0.5 ", "5.e-1 ");
    expect_sample(sample, "1048576", "+1.048576E+06");
    expect_sample(sample, "0.000244140625", ".000244140625");
    expect_sample(sample, "4 5\n", "4 5");
    // What is too small for the type is 0, what is too large infinite, and more digits than the type has are rounded.
    const auto weight = [this](const string &number) {
        const auto [outcome, net] = this->read(string(sample).replace(sample.find("-1.25"), 5, number));
        EXPECT_EQ(outcome, "0 0") << number;
        return net == nullptr ? NAN : net->links[1].weight;
    };
    EXPECT_EQ(weight("1e-400"), 0);
    EXPECT_EQ(weight("-1e-99999"), 0);
    EXPECT_EQ(weight("0.1000000000000000055511151231257827021181583404541015625"), TypeParam(0.1));
    EXPECT_EQ(weight("1e-45"), TypeParam(1e-45));
    EXPECT_EQ(weight("-inf"), -INFINITY);
    EXPECT_EQ(weight("-1e400"), -INFINITY);
    EXPECT_EQ(weight("1" + string(320, '0') + "e-5"), INFINITY);
    EXPECT_EQ(weight("2e39"), TypeParam(2e39));
    EXPECT_TRUE(std::isnan(weight("-nan")));
    // However long a number is.
    EXPECT_EQ(weight("0." + string(400, '0') + "1"), 0);
    EXPECT_EQ(weight("0." + string(600, '3')), TypeParam(1.0 / 3));
    EXPECT_EQ(weight("1" + string(900, '0') + "e-900"), 1);
}

// Where the text of the sample is changed: line and place in the line, both from 0.
struct Fault {
    int line, place;
    const char *by;
    int told = -1; // the line that an error names, if not this one
};

TYPED_TEST(NetworkFiles, ThatAreMalformedAreRefused)
{
    const Fault faults[] = {
        {1, 0, "0"},           {1, 0, "-1"},
        {1, 0, "x"},           {1, 0, "2.5"},
        {1, 0, "99999999999"}, {1, 1, "0"},
        {1, 2, "1"},           {1, 2, "-2147483648"},
        {1, 3, "-1"},          {1, 4, "4", 4},
        {1, 4, "2", 3},        {1, 5, "5"},
        {1, 5, "7"},           {1, 0, "2147483647", 2},
        {1, 3, "0x6"},         {2, 0, "3"},
        {2, 0, "0"},           {2, 1, "1"},
        {2, 2, "2"},           {3, 0, "-2"},
        {3, 1, "3"},           {3, 2, "5"},
        {3, 1, "-1"},          {4, 0, "2"},
        {4, 1, "3"},           {5, 0, "2"},
        {5, 0, "5"},           {5, 0, "-1"},
        {5, 1, "1"},           {5, 1, "0"},
        {5, 1, "5"},           {5, 2, "x"},
        {5, 2, "1.5.5"},       {5, 2, "--1"},
        {5, 2, "."},           {5, 2, "+"},
        {5, 2, "1e+"},         {5, 2, "+-1"},
        {11, 0, "1"},          {11, 0, "3"},
        {11, 1, "-1"},         {11, 2, "7"},
        {11, 3, "4"},          {11, 3, "-1"},
        {11, 4, "?"},          {11, 5, "1,5"},
        {12, 0, "6"},          {12, 0, "-1"},
        {12, 0, "2"},          {12, 1, "0"},
        {22, 0, "3"},          {22, 1, "x"},
        {16, 0, "1"},
    };
    std::vector<string> lines;
    for (std::istringstream text(sample); std::getline(text, lines.emplace_back());) {}
    for (const Fault &fault : faults) {
        std::istringstream line(lines[fault.line]);
        string bytes, word;
        for (int i = 0; i < fault.line; ++i) bytes += lines[i] + "\n";
        for (int i = 0; line >> word; ++i) bytes += (i == fault.place ? fault.by : word) + " ";
        for (std::size_t i = fault.line + 1; i < lines.size(); ++i) bytes += "\n" + lines[i];
        EXPECT_EQ(this->read(bytes, "li").first,
                  text("5 65373", this->name, 1 + (fault.told < 0 ? fault.line : fault.told)))
            << "line " << fault.line << ", place " << fault.place << ": " << fault.by;
    }
    const auto version = [this](const string &number) {
        return this->read(string(sample).replace(0, 8, number), "l").first;
    };
    for (const char *other : {"2.000000", "2.0", "0", "-1.0", "1.000001", "10", "0.1e2"})
        EXPECT_EQ(version(other), "5 65372 " + this->name) << other;
    for (const char *none : {"x", "one", "{", "."})
        EXPECT_THAT(version(none), testing::AnyOf("5 65372 " + this->name, "5 65373 " + this->name)) << none;
    // No number is so long.
    EXPECT_EQ(this->read(string(sample).replace(sample.find("1048576"), 1, string(70000, '1'))).first,
              "5 65373");
}

TYPED_TEST(NetworkFiles, ThatEndEarlyAreRefused)
{
    for (std::size_t size = 0; size < sample.size() - 2; ++size)
        ASSERT_EQ(this->read(sample.substr(0, size)).first, "5 65373") << sample.substr(0, size);
    EXPECT_EQ(this->read(sample.substr(0, sample.size() - 1)).first, "0 0");
}

// However a file falls into the pieces in which it is read, and in a stream.
TYPED_TEST(NetworkFiles, MayBeLarge)
{
    using Real = TypeParam;
    const auto net = make<Real>(40, 50);
    Routines<Real>::edit(net.get(), TAVIK_LINK_ALL, 0);
    for (int k = 0; k < net->n_links; ++k) net->links[k].weight = Real(1.0 / (k + 1));
    const string bytes = this->written(*net);
    ASSERT_GT(bytes.size(), 100000U);
    const Owned<Real> same = this->read(bytes).second;
    ASSERT_NE(same, nullptr);
    EXPECT_EQ(this->written(*same), bytes);
    const Record due(*same);
    for (int shift = 0; shift < 60; ++shift) {
        const auto [outcome, shifted] = this->read(string(shift, ' ') + bytes + "rest");
        ASSERT_EQ(outcome, "0 0") << shift;
        EXPECT_TRUE(Record(*shifted) == due) << shift;
    }
    FILE *stream = std::fopen(this->name.c_str(), "r");
    const Owned<Real> streamed(Routines<Real>::read(nullptr, TAVIK_FILE, stream, 0));
    char rest[6] = {};
    EXPECT_EQ(std::fread(rest, 1, 6, stream), 5U);
    EXPECT_STREQ(rest, "\nrest");
    std::fclose(stream);
    ASSERT_NE(streamed, nullptr);
    EXPECT_TRUE(Record(*streamed) == due);
}

// Counts do not make the reader allocate: that would be 5, 200, or many gigabytes.
TYPED_TEST(NetworkFiles, ThatClaimMuchCostLittle)
{
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    for (const char *claim :
         {"2000000000 1 2 0 2000000001 0\n2000000000 0 1 2 3\n", "1 1 2000000000 0 2000000000 0\n1 0\n",
          "1 1 2 2000000000 2 2000000000\n1 0\n1 1\n",
          "2 1 2 2000000000 3 2000000000\n2 0 1\n1 2\n0 2 1 1\n1 2 1 1\n",
          "1 1 2 1 2 1\n1 0\n1 1\n0 1 1 1\n0 0 2000000000 0 0 1\n0 1 2\n"})
        EXPECT_EQ(this->read(string("1.0\n") + claim).first, "5 65373") << claim;
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 50000); // kilobytes
}

TYPED_TEST(NetworkFiles, InAStreamFollowEachOther)
{
    using Real = TypeParam;
    using R = Routines<Real>;
    const auto first = this->sample_network(), second = make<Real>(1, 3);
    FILE *stream = std::fopen(this->name.c_str(), "w+");
    std::fputs("before\n", stream);
    R::write(first.get(), nullptr, TAVIK_FILE, stream, 0);
    R::write(second.get(), "not/used", TAVIK_FILE, stream, 0);
    std::fputs("after", stream);
    std::fseek(stream, 7, SEEK_SET);
    for (const auto *net : {first.get(), second.get()}) {
        const Owned<Real> same(R::read(net == first.get() ? nullptr : "not/used", TAVIK_FILE, stream, 0));
        ASSERT_NE(same, nullptr);
        EXPECT_EQ(Record(*same), Record(*net));
    }
    char rest[9] = {};
    EXPECT_EQ(std::fread(rest, 1, 8, stream), 6U); // up to the last number
    EXPECT_STREQ(rest, "\nafter");
    EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(R::read("s", TAVIK_FILE, stream, 0), nullptr); }), "5 65373");
    std::fclose(stream);

    // From a pipe, where nothing can be read twice.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    FILE *in = fdopen(ends[0], "r"), *out = fdopen(ends[1], "w");
    R::write(first.get(), nullptr, TAVIK_FILE, out, 0);
    R::write(second.get(), nullptr, TAVIK_FILE, out, 0);
    std::fclose(out);
    for (const auto *net : {first.get(), second.get()}) {
        const Owned<Real> same(R::read(nullptr, TAVIK_FILE, in, 0));
        ASSERT_NE(same, nullptr);
        EXPECT_EQ(Record(*same), Record(*net));
    }
    std::fclose(in);
}

TYPED_TEST(NetworkFiles, TellOfProgress)
{
    using R = Routines<TypeParam>;
    const auto net = this->sample_network();
    const string file = this->name;
    R::write(net.get(), file.c_str(), TAVIK_PRINT, 0);
    EXPECT_EQ(this->output.take(), "Opening " + file + " for writing network data structure\n" +
                                       "Writing Neural Network... 22 Lines written to network file. \nFile " +
                                       file + " closed\n");
    Owned<TypeParam> same(R::read(file.c_str(), TAVIK_PRINT, 0));
    EXPECT_EQ(this->output.take(), "Attempting to open " + file +
                                       " for \nreading network data structure\nFile " + file +
                                       " Successfully Opened\nFile " + file + " closed\n");
    FILE *stream = std::fopen(file.c_str(), "w+");
    R::write(net.get(), nullptr, TAVIK_PRINT, TAVIK_FILE, stream, 0);
    EXPECT_EQ(this->output.take(),
              "Writing Neural Network... 22 Lines written to network file.  \nFile not closed.\n");
    std::rewind(stream);
    same.reset(R::read(nullptr, TAVIK_FILE, stream, TAVIK_PRINT, 0));
    EXPECT_EQ(this->output.take(), "Network restored from file.  File not closed.\n");
    std::fclose(stream);
    R::write(net.get(), file.c_str(), 0);
    same.reset(R::read(file.c_str(), 0));
    EXPECT_EQ(this->output.take(), "");
}

TYPED_TEST(NetworkFiles, AreIndependentOfTheLocale)
{
    const string source = this->folder + "/source", locale = "comma";
    std::ofstream(source)
        << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n";
    const string compile =
        "cd '" + this->folder + "' && localedef -c -i source -f ANSI_X3.4-1968 ./comma 2>/dev/null";
    if (std::system(compile.c_str()) == -1) GTEST_SKIP() << "no shell";
    setenv("LOCPATH", this->folder.c_str(), 1);
    const bool set = std::setlocale(LC_NUMERIC, "comma") != nullptr;
    if (set) {
        EXPECT_STREQ(std::localeconv()->decimal_point, ",");
        const auto net = this->sample_network();
        EXPECT_EQ(this->written(*net), sample);
        const auto [outcome, same] = this->read(sample);
        EXPECT_EQ(outcome, "0 0");
        if (same != nullptr) {
            EXPECT_EQ(Record(*same), Record(*net));
        }
        Routines<TypeParam>::edit(net.get(), TAVIK_PRINT, 0);
        EXPECT_NE(this->output.take().find("Bias = -0.500000 \n"), string::npos);
        std::setlocale(LC_NUMERIC, "C");
    }
    unsetenv("LOCPATH");
    if (!set) GTEST_SKIP() << "no localedef";
}

TYPED_TEST(NetworkFiles, ThatCannotBeOpenedOrAreNone)
{
    using R = Routines<TypeParam>;
    const auto net = this->sample_network();
    const auto outcome = [](const string &kinds, const std::function<void()> &call) {
        return capture::outcome(call, kinds);
    };
    const string missing = this->folder + "/no/net";
    EXPECT_EQ(outcome("lll", [&] { R::write(net.get(), missing.c_str(), 0); }),
              "5 65359 ASCII " + missing + " storing the neural network");
    EXPECT_EQ(outcome("lll", [&] { EXPECT_EQ(R::read(missing.c_str(), 0), nullptr); }),
              "5 65359 ASCII " + missing + " reading the neural network");
    EXPECT_EQ(outcome("l", [&] { R::write(net.get(), this->folder.c_str(), 0); }), "5 65359 ASCII");
    EXPECT_EQ(outcome("", [&] { R::write(net.get(), "", 0); }), "5 65359");
    EXPECT_THAT(outcome("", [&] { EXPECT_EQ(R::read(this->folder.c_str(), 0), nullptr); }),
                testing::AnyOf("5 65359", "5 65373"));
    EXPECT_EQ(outcome("l", [&] { R::write(nullptr, this->name.c_str(), 0); }), "5 150 network");
    EXPECT_EQ(outcome("l", [&] { EXPECT_EQ(R::read(nullptr, 0), nullptr); }), "5 150 filename");
    EXPECT_EQ(outcome("", [&] { R::write(net.get(), nullptr, TAVIK_PRINT, 0); }), "0 0");
    EXPECT_EQ(this->output.take(), "");
    EXPECT_EQ(outcome("ii", [&] { R::write(net.get(), this->name.c_str(), TAVIK_PRINT, 12345, 0); }),
              "5 11001 12345 2");
    EXPECT_EQ(outcome("ii", [&] { R::read(missing.c_str(), TAVIK_FILE, nullptr, 12345, 0); }),
              "5 11001 12345 2");
    EXPECT_TRUE(files::is_empty(this->folder));
}

// Whoever reads a file while threads write it finds one network or the other.
TYPED_TEST(NetworkFiles, AreWholeAtAnyTime)
{
    using R = Routines<TypeParam>;
    const auto write = [&](int n) {
        capture::restore_defaults(false);
        const auto net = make<TypeParam>(n, n);
        R::edit(net.get(), TAVIK_LINK_ALL, 0);
        for (int i = 0; i < 150; ++i) {
            R::write(net.get(), this->name.c_str(), 0);
            EXPECT_EQ(tavik_error_code(), 0);
        }
    };
    R::write(this->sample_network().get(), this->name.c_str(), 0);
    std::thread first(write, 3), second(write, 20);
    for (int i = 0; i < 300; ++i) {
        const Owned<TypeParam> net(R::read(this->name.c_str(), 0));
        EXPECT_NE(net, nullptr) << tavik_error_code();
        if (net == nullptr) break;
        EXPECT_THAT(net->n_links, testing::AnyOf(6, 9, 400));
    }
    first.join();
    second.join();
    EXPECT_EQ(std::distance(files::directory_iterator(this->folder), {}), 1);
}

TYPED_TEST(NetworkFiles, SurviveAFailedWrite)
{
    using R = Routines<TypeParam>;
    const auto small = this->sample_network(), large = make<TypeParam>(40, 40);
    R::edit(large.get(), TAVIK_LINK_ALL, 0);
    const auto outcome = [&](const char *file, auto... options) {
        return capture::outcome([&] { R::write(large.get(), file, options..., 0); });
    };
    EXPECT_EQ(outcome("/dev/full"), "5 65374");
    FILE *full = std::fopen("/dev/full", "w");
    EXPECT_EQ(outcome(nullptr, TAVIK_FILE, full), "5 65374");
    std::fclose(full);
    // A file that may not grow so far.
    EXPECT_EQ(this->written(*small), sample);
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const auto signal = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit low = {5000, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    const string seen = outcome(this->name.c_str());
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, signal);
    EXPECT_EQ(seen, "5 65374");
    EXPECT_EQ(this->contents(this->name), sample);
    EXPECT_EQ(std::distance(files::directory_iterator(this->folder), {}), 1);
    // A name that leads elsewhere still does, and a file keeps who may read it.
    const string link = this->folder + "/link";
    files::create_symlink(this->name, link);
    files::permissions(this->name, files::perms::owner_read | files::perms::owner_write);
    EXPECT_EQ(outcome(link.c_str()), "0 0");
    EXPECT_TRUE(files::is_symlink(link));
    EXPECT_EQ(Record(*Owned<TypeParam>(R::read(this->name.c_str(), 0))), Record(*large));
}

} // namespace
