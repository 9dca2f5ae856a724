// Networks in text files: the bytes, what is read back from them, what is refused and how, and what a failure leaves.
#include "datamining/networks.hpp"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
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

// The sample with another word at a line and a place in the line, both from 0.
string changed_sample(int line, int place, const string &by)
{
    std::size_t at = 0;
    for (; line > 0; --line) at = sample.find('\n', at) + 1;
    for (; place > 0; --place) at = sample.find_first_not_of(' ', sample.find(' ', at));
    return string(sample).replace(at, sample.find_first_of(" \n", at) - at, by);
}

// A folder of its own for each test, gone when the test ends.
template <class Real> struct NetworkFiles : NetworkTest {
    using R = Routines<Real>;
    string folder = (files::temp_directory_path() / "networks_XXXXXX").string(), name;
    Owned<Real> sample_network = make<Real>(2, 1);

    NetworkFiles()
    {
        if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("no folder " + folder);
        name = folder + "/net";
        const Real weights[] = {Real(0.5), Real(-1.25), 1048576, Real(0.000244140625), 0, Real(-0.0)},
                   bias[] = {Real(0.75), Real(-0.5)}, last[] = {9};
        const int codes[] = {2, 3};
        R::edit(sample_network.get(), TAVIK_CREATE_HIDDEN_LAYER, 2, TAVIK_LINK_ALL, TAVIK_WEIGHTS, weights,
                TAVIK_BIAS, 1, bias, TAVIK_ACTIVATION_FCN, 1, codes, 0);
        R::edit(sample_network.get(), TAVIK_BIAS, 2, last, 0);
        sample_network->links[4].gradient = -2;
        sample_network->nodes[3].param = Real(1.5);
    }
    ~NetworkFiles() override
    {
        files::remove_all(folder);
    }

    string contents() const
    {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    string written(const Network<Real> &net) const
    {
        R::write(const_cast<Network<Real> *>(&net), name.c_str(), 0);
        EXPECT_EQ(tavik_error_code(), 0);
        return contents();
    }
    // The network in this text, which is read as a file and, in another way, from a stream of ours.
    Owned<Real> read(const string &bytes, const string &due = "0 0") const
    {
        SCOPED_TRACE(bytes.substr(0, 600));
        std::ofstream(name, std::ios::binary) << bytes;
        FILE *stream = std::fopen(name.c_str(), "r");
        Owned<Real> net, streamed;
        expect_outcome(due.substr(0, due.find(' ', 2)),
                       [&] { streamed.reset(R::read(nullptr, TAVIK_FILE, stream, 0)); });
        std::fclose(stream);
        expect_outcome(due, [&] { net.reset(R::read(name.c_str(), 0)); });
        EXPECT_EQ(net == nullptr, due != "0 0");
        EXPECT_EQ(streamed == nullptr, due != "0 0");
        if (due != "0 0") return nullptr;
        if (net == nullptr || streamed == nullptr) throw std::runtime_error("no network");
        EXPECT_EQ(testing::PrintToString(Record(*streamed)), testing::PrintToString(Record(*net)));
        return net;
    }
};
TYPED_TEST_SUITE(NetworkFiles, Reals);

TYPED_TEST(NetworkFiles, HaveExactlyTheseBytesAndGiveTheNetworkBack)
{
    EXPECT_EQ(this->written(*this->sample_network), sample);
    const auto same = this->read(sample);
    ASSERT_EQ(Record(*same), Record(*this->sample_network));
    EXPECT_TRUE(std::signbit(same->links[5].weight));
    // It can be edited like any other.
    Routines<TypeParam>::edit(same.get(), TAVIK_LINK_NODE, 4, 0, 0);
    Routines<TypeParam>::edit(same.get(), TAVIK_REMOVE_LINK, 4, 3, 0);
    EXPECT_EQ(Record(*same).nodes[4].in, (std::vector<int>{4, 5}));
    EXPECT_EQ(same->links[5].from_node, 0);
}

// Numbers as the C library writes and reads them with 15 digits. What has been read is written with the same bytes.
TYPED_TEST(NetworkFiles, GiveNumbersBack)
{
    using Real = TypeParam;
    using Limits = std::numeric_limits<Real>;
    const Real values[] = {Real(1) / 3,         Real(-2e9) / 7,    Limits::max() / 2, Limits::lowest() / 2,
                           Limits::min(),       Real(123456789.5), Real(1e15),        Real(1e-5),
                           Real(9.9999e20) / 3, Limits::epsilon(), Real(0.1),         Real(-99999)};
    const auto net = make<Real>(3, 4);
    Routines<Real>::edit(net.get(), TAVIK_LINK_ALL, TAVIK_WEIGHTS, values, 0);
    for (int k = 0; k < 12; ++k) net->links[k].gradient = values[11 - k];
    for (int i = 0; i < 7; ++i) net->nodes[i].bias = values[i], net->nodes[i].param = values[11 - i];
    const string bytes = this->written(*net);
    Record due(*net);
    const auto round = [](double &x) { x = Real(std::strtod(format("%.15g", x).c_str(), nullptr)); };
    for (auto &[weight, gradient, to, from] : due.links) {
        EXPECT_THAT(bytes,
                    testing::HasSubstr(format("\n%d %d %20.15g %20.15g\n", from, to, weight, gradient)));
        round(weight), round(gradient);
    }
    for (auto &node : due.nodes) round(node.bias), round(node.param);
    const auto same = this->read(bytes);
    EXPECT_EQ(Record(*same), due);
    EXPECT_EQ(this->written(*same), bytes);
}

TYPED_TEST(NetworkFiles, AreTheSameInEveryLocale)
{
    const string before = std::setlocale(LC_NUMERIC, nullptr);
    const char *const names[] = {"de_DE.UTF-8", "fr_FR.UTF-8", "es_ES.UTF-8", "pl_PL.UTF-8", "de_DE"};
    const auto has_comma = [](const char *name) {
        return std::setlocale(LC_NUMERIC, name) != nullptr && *std::localeconv()->decimal_point == ',';
    };
    if (std::none_of(std::begin(names), std::end(names), has_comma))
        GTEST_SKIP() << "no locale with a decimal comma";
    const string bytes = this->written(*this->sample_network);
    const Record same(*this->read(sample));
    this->read(changed_sample(5, 2, "0,5"), "5 65373");
    std::setlocale(LC_NUMERIC, before.c_str());
    EXPECT_EQ(bytes, sample);
    EXPECT_EQ(same, Record(*this->sample_network));
}

// A file made by others may hold links twice. Of these the last one goes first.
TYPED_TEST(NetworkFiles, MayHoldLinksTwice)
{
    const auto net = this->read("1.0\n2 1 2 4 3 4\n2 0 1\n1 2\n0 2 5 1\n0 2 6 1\n1 2 7 1\n0 2 8 1\n"
                                "0 0 3 0 0 1\n3 0 1\n0 0 1 0 0 1\n2\n1 4 0 0 0 1\n2 3 1 0\n");
    for (const int left : {3, 2}) {
        Routines<TypeParam>::edit(net.get(), TAVIK_REMOVE_LINK, 2, 0, 0);
        const Record seen(*net);
        ASSERT_EQ(seen.links.size(), left);
        EXPECT_TRUE(seen.links[0].weight == 5 && seen.links[1].weight == (left == 3 ? 6 : 7));
        EXPECT_EQ(seen.nodes[2].in.size(), left);
    }
}

// Blanks and line breaks may stand anywhere, and numbers in any form that scanf takes, however long.
TYPED_TEST(NetworkFiles, MayBeLaidOutFreely)
{
    string bytes = sample;
    std::replace(bytes.begin() + 30, bytes.end(), '\n', '\t');
    bytes.replace(0, 14, " \r\n +1.0\n+2 01 3\n\n");
    bytes.replace(bytes.find("1048576"), 7, "+1.048576E+06");
    bytes.replace(bytes.find(" 0.000244140625"), 15, " .000244140625");
    EXPECT_EQ(Record(*this->read(bytes)), Record(*this->sample_network)) << bytes;
    // What is too small for the type is 0, what is too large infinite, and more digits than the type has are rounded.
    const std::pair<string, TypeParam> numbers[] = {{"-1e-99999", 0},
                                                    {"1e-45", TypeParam(1e-45)},
                                                    {"-inf", -INFINITY},
                                                    {"2e39", TypeParam(2e39)},
                                                    {"1" + string(900, '0') + "e-900", 1},
                                                    {"0." + string(600, '3'), TypeParam(1.0 / 3)}};
    for (const auto &[number, due] : numbers)
        EXPECT_EQ(this->read(changed_sample(5, 2, number))->links[0].weight, due) << number;
    EXPECT_TRUE(std::isnan(this->read(changed_sample(5, 2, "-nan"))->links[0].weight));
}

TYPED_TEST(NetworkFiles, ThatAreMalformedAreRefused)
{
    const std::pair<int, std::vector<const char *>> faults[] = {
        // a line, and other words at each place in it
        {1, {"0 -1 x 2.5 99999999999", "0", "1 -2147483648", "-1 0x6", "", "5 7"}},
        {2, {"0 3", "1", "2"}},
        {3, {"-2", "-1 3", "5"}},
        {4, {"2", "3"}},
        {5, {"-1 2 5", "0 1 5", "x 1.5.5 --1 . + 1e+ +-1"}},
        {11, {"1 3", "-1", "7", "-1 4", "?", "1,5"}},
        {12, {"-1 2 6", "0"}},
        {16, {"1"}},
        {22, {"3", "x"}}};
    const string refused = "5 65373 " + this->name + " ";
    for (const auto &[line, places] : faults)
        for (int place = 0; place < static_cast<int>(places.size()); ++place) {
            std::istringstream words(places[place]);
            for (string word; words >> word;)
                this->read(changed_sample(line, place, word), refused + std::to_string(1 + line));
        }
    // What disagrees with a count is told of where it stands.
    this->read(changed_sample(1, 4, "4"), refused + "5");
    this->read(changed_sample(1, 4, "2"), refused + "4");
    this->read(changed_sample(1, 0, "2147483647"), refused + "3");
    for (const char *version : {"2.000000", "2.0", "0", "-1.0", "1.000001", "10", "0.1e2"})
        this->read(changed_sample(0, 0, version), "5 65372 " + this->name);
    this->read(changed_sample(7, 2, string(70000, '1')), "5 65373"); // no number is so long
    // Counts do not make the reader allocate: that would be 5, 200, or many gigabytes.
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    for (const char *claim :
         {"2000000000 1 2 0 2000000001 0\n2000000000 0 1 2 3\n", "1 1 2000000000 0 2000000000 0\n1 0\n",
          "2 1 2 2000000000 3 2000000000\n2 0 1\n1 2\n0 2 1 1\n1 2 1 1\n",
          "1 1 2 1 2 1\n1 0\n1 1\n0 1 1 1\n0 0 2000000000 0 0 1\n0 1 2\n"})
        this->read(string("1.0\n") + claim, "5 65373");
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 50000); // kilobytes
    for (std::size_t size = 0; size < sample.size() - 2; ++size)
        this->read(sample.substr(0, size), "5 65373");
}

// However a file falls into the pieces in which it is read.
TYPED_TEST(NetworkFiles, MayBeLarge)
{
    const auto net = linked<TypeParam>({40, 50});
    for (int k = 0; k < net->n_links; ++k) net->links[k].weight = TypeParam(k) / 1024;
    const string bytes = this->written(*net);
    ASSERT_GT(bytes.size(), 100000U);
    for (int shift = 0; shift < 60; ++shift)
        ASSERT_TRUE(Record(*this->read(string(shift, ' ') + bytes + "rest")) == Record(*net)) << shift;
}

TYPED_TEST(NetworkFiles, InAStreamFollowEachOther)
{
    using R = Routines<TypeParam>;
    const auto &first = this->sample_network, &second = make<TypeParam>(1, 3);
    FILE *stream = std::fopen(this->name.c_str(), "w+");
    std::fputs("before\n", stream);
    R::write(first.get(), nullptr, TAVIK_FILE, stream, 0);
    R::write(second.get(), "not/used", TAVIK_FILE, stream, 0);
    std::fputs("after", stream);
    std::fseek(stream, 7, SEEK_SET);
    for (const auto *net : {&first, &second}) {
        const Owned<TypeParam> same(R::read(net == &first ? nullptr : "not/used", TAVIK_FILE, stream, 0));
        ASSERT_NE(same, nullptr);
        EXPECT_EQ(Record(*same), Record(**net));
    }
    char rest[9] = {};
    EXPECT_EQ(std::fread(rest, 1, 8, stream), 6U); // up to the last number
    EXPECT_STREQ(rest, "\nafter");
    expect_outcome("5 65373", [&] { EXPECT_EQ(R::read("s", TAVIK_FILE, stream, 0), nullptr); });
    std::fclose(stream);
}

TYPED_TEST(NetworkFiles, TellOfProgress)
{
    using R = Routines<TypeParam>;
    auto *net = this->sample_network.get();
    const string file = this->name;
    Owned<TypeParam> same;
    R::write(net, file.c_str(), TAVIK_PRINT, 0);
    EXPECT_EQ(this->output.take(), "Opening " + file + " for writing network data structure\n" +
                                       "Writing Neural Network... 22 Lines written to network file. \nFile " +
                                       file + " closed\n");
    same.reset(R::read(file.c_str(), TAVIK_PRINT, 0));
    EXPECT_EQ(this->output.take(), "Attempting to open " + file +
                                       " for \nreading network data structure\nFile " + file +
                                       " Successfully Opened\nFile " + file + " closed\n");
    FILE *stream = std::fopen(file.c_str(), "w+");
    R::write(net, nullptr, TAVIK_PRINT, TAVIK_FILE, stream, 0);
    EXPECT_EQ(this->output.take(),
              "Writing Neural Network... 22 Lines written to network file.  \nFile not closed.\n");
    std::rewind(stream);
    same.reset(R::read(nullptr, TAVIK_FILE, stream, TAVIK_PRINT, 0));
    EXPECT_EQ(this->output.take(), "Network restored from file.  File not closed.\n");
    std::fclose(stream);
    this->read(this->written(*net));
    EXPECT_EQ(this->output.take(), "");
}

TYPED_TEST(NetworkFiles, ThatCannotBeOpenedOrAreNone)
{
    using R = Routines<TypeParam>;
    auto *net = this->sample_network.get();
    const char *name = this->name.c_str(), *folder = this->folder.c_str();
    const string missing = this->folder + "/no/net";
    EXPECT_EQ(capture::outcome([&] { R::write(net, missing.c_str(), 0); }, "lll"),
              "5 65359 ASCII " + missing + " storing the neural network");
    EXPECT_EQ(capture::outcome([&] { EXPECT_EQ(R::read(missing.c_str(), 0), nullptr); }, "lll"),
              "5 65359 ASCII " + missing + " reading the neural network");
    EXPECT_THAT(capture::outcome([&] { EXPECT_EQ(R::read(folder, 0), nullptr); }),
                testing::AnyOf("5 65359", "5 65373"));
    expect_outcome("5 65359 ASCII", [&] { R::write(net, folder, 0); });
    expect_outcome("5 65359", [&] { R::write(net, "", 0); });
    expect_outcome("5 150 network", [&] { R::write(nullptr, name, 0); });
    expect_outcome("5 150 filename", [&] { EXPECT_EQ(R::read(nullptr, 0), nullptr); });
    expect_outcome("0 0", [&] { R::write(net, nullptr, TAVIK_PRINT, 0); });
    EXPECT_EQ(this->output.take(), "");
    expect_outcome("5 11001 12345 2", [&] { R::write(net, name, TAVIK_PRINT, 12345, 0); });
    expect_outcome("5 11001 12345 2", [&] { R::read(missing.c_str(), TAVIK_FILE, nullptr, 12345, 0); });
    EXPECT_TRUE(files::is_empty(folder));
}

TYPED_TEST(NetworkFiles, SurviveAFailedWrite)
{
    using R = Routines<TypeParam>;
    const auto large = linked<TypeParam>({40, 40});
    FILE *full = std::fopen("/dev/full", "w");
    expect_outcome("5 65374", [&] { R::write(large.get(), "/dev/full", 0); });
    expect_outcome("5 65374", [&] { R::write(large.get(), nullptr, TAVIK_FILE, full, 0); });
    std::fclose(full);
    // A file that may not grow so far: the old one stays.
    EXPECT_EQ(this->written(*this->sample_network), sample);
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit low = {5000, limit.rlim_max};
    const auto signal = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &low);
    const string seen = capture::outcome([&] { R::write(large.get(), this->name.c_str(), 0); });
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, signal);
    EXPECT_EQ(seen, "5 65374");
    EXPECT_EQ(this->contents(), sample);
    EXPECT_EQ(std::distance(files::directory_iterator(this->folder), {}), 1);
}

} // namespace
