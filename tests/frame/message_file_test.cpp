// The reader of tavik_e.bin. A process opens the file once, so every case runs in a process of its own.
#include "capture.hpp"

#include <filesystem>
#include <fstream>

using namespace capture;
using testing::EndsWith;
using testing::StrEq;

namespace {

struct Record {
    unsigned code;
    string text, name;
};

// A message file with the given records, which are in ascending order of their codes.
string image(const std::vector<Record> &records, unsigned exponent = 2, bool swapped = false,
             unsigned magic = 29432)
{
    const std::size_t n = records.size(), unit = std::size_t{1} << exponent,
                      start = (4 * n + 15 + unit - 1) / unit * unit;
    std::vector<std::size_t> words = {magic, 1, n, 0, 704 + 2 * unit, 64, exponent};
    for (const Record &record : records) words.push_back(record.code);
    // With units of one byte the records' origin is the last byte of the tables, which the first offset
    // skips.
    for (std::size_t i = 0, offset = start < 4 * n + 16 ? 1 : 0; i <= n; ++i) {
        words.push_back(offset);
        if (i < n) offset += (records[i].text.size() + records[i].name.size() + 2 + unit - 1) / unit;
    }
    string file;
    for (std::size_t word : words)
        for (bool high : {swapped, !swapped}) file += static_cast<char>(high ? word >> 8 : word & 255);
    for (std::size_t i = 0; i < n; ++i) {
        file.resize(start + words[7 + n + i] * unit);
        file += records[i].text + '\0' + records[i].name + '\0';
    }
    file.resize(start + (words.back() + 1) * unit); // a record is read with one unit to spare
    return file;
}

const std::vector<Record> kRecords = {{7, "seven", "TAVIK_SEVEN"},
                                      {300, "value %(i1)%/next line", "TAVIK_VALUE"},
                                      {12345, "", "TAVIK_EMPTY"},
                                      {40000, string(700, 'w') + " end", "TAVIK_LONG"},
                                      {65535, "the last", "TAVIK_LAST"}};
const std::size_t kTables = 4 * kRecords.size() + 16;

// What a raised code prints when it has no message.
string fallback(long code)
{
    return block(3, "tavik_x", "Error code " + to_string(code) + ".", to_string(code));
}
const string kSeven = block(3, "tavik_x", "seven", "TAVIK_SEVEN");
const string kValue = block(3, "tavik_x", "value 5\nnext line", "TAVIK_VALUE");

void raise_codes(const std::vector<long> &codes)
{
    for (long code : codes) {
        tavik_e1psh("tavik_x");
        tavik_e1sti(1, 5);
        tavik_ermes(3, code);
        tavik_e1pop("tavik_x");
    }
}

struct MessageFileDeathTest : NewProcessTest {
    string dir = testing::TempDir() + "tavik_messages_XXXXXX";
    bool made = std::getenv("TAVIKTEST_DIR") == nullptr; // a child inherits the folder
    MessageFileDeathTest()
    {
        if (made) setenv("TAVIKTEST_DIR", mkdtemp(dir.data()), 1);
        dir = std::getenv("TAVIKTEST_DIR");
    }
    ~MessageFileDeathTest() override
    {
        if (made) std::filesystem::remove_all(dir);
        if (made) unsetenv("TAVIKTEST_DIR");
    }
    void write(const string &name, const string &bytes) const
    {
        std::filesystem::create_directories((dir + "/" + name).substr(0, (dir + "/" + name).rfind('/')));
        std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
    }
    // In a child: raises the codes as warnings, which prints them on standard error, the only output.
    void expect(
        const char *path, const std::vector<long> &codes, const testing::Matcher<const string &> &due,
        const std::function<void()> &prepare = [] {}) const
    {
        const auto act = [&] {
            std::filesystem::current_path(dir);
            path == nullptr ? unsetenv("TAVIKERRPATH") : setenv("TAVIKERRPATH", path, 1);
            prepare();
            raise_codes(codes);
        };
        in_child(act, 0, due);
    }
};

TEST_F(MessageFileDeathTest, BothByteOrdersAndEveryAlignment)
{
    const string due = block(3, "tavik_x", "the last", "TAVIK_LAST") + kSeven + kValue + fallback(8) +
                       block(3, "tavik_x", kRecords[3].text, "TAVIK_LONG") + fallback(6) + fallback(65534) +
                       kSeven;
    for (bool swapped : {false, true})
        for (unsigned exponent : {0u, 1u, 2u, 4u, 6u}) {
            SCOPED_TRACE(testing::Message() << "swapped " << swapped << ", exponent " << exponent);
            write("tavik_e.bin", image(kRecords, exponent, swapped));
            expect("./", {65535, 7, 300, 8, 40000, 6, 65534, 7}, StrEq(due));
        }
    // Codes count modulo 100000 and in 16 bits; an empty text prints nothing.
    expect("./", {100007, 65543, 123400000007, 12345}, StrEq(kSeven + kSeven + kSeven));
    // A repeated look-up reads nothing.
    expect("./", {300, 300}, StrEq(kValue + kValue + kValue), [this] {
        raise_codes({300});
        std::filesystem::resize_file(dir + "/tavik_e.bin", 0);
    });
}

TEST_F(MessageFileDeathTest, SearchPath)
{
    for (const string name : {"a/", "b/", "a/pre_", "home/"})
        write(name + "tavik_e.bin", image({{7, "from " + name, "TAVIK_SEVEN"}}));
    write("bad/tavik_e.bin", image(kRecords, 2, false, 1));
    const auto by_option = [](const char *path) {
        string copied = path;
        tavik_error_options(TAVIK_ERROR_MSG_PATH, copied.data(), TAVIK_ERROR_MSG_NAME, "other.bin", 0);
        copied.assign(copied.size(), 'x');
    };
    const auto home = [this] { setenv("HOME", (dir + "/home").c_str(), 1); };
    setenv("TAVIKTEST_A", (dir + "/a/").c_str(), 1);
    const struct {
        const char *label, *path, *due;
        std::function<void()> prepare = [] {};
    } rows[] = {
        {"variable and rest", "$TAVIKTEST_DIR/b/", "b/"},
        {"variable alone", "$TAVIKTEST_A", "a/"},
        {"variable before a colon", "$TAVIKTEST_A:b/", "a/"},
        {"first hit wins", "b/:a/", "b/"},
        {"missing ones are skipped", "none/:$TAVIKTEST_DIR/none/::a/:b/", "a/"},
        {"unset variable", "$TAVIKTEST_UNSET/:a/", "a/"},
        {"no slash is added", "a/pre_", "a/pre_"},
        {"option before environment", "a/", "b/", [=] { by_option("b/"); }},
        {"null option", "b/", "b/", [] { tavik_error_options(TAVIK_ERROR_MSG_PATH, (char *)nullptr, 0); }},
        {"default: home", nullptr, "home/", home},
        {"default: working folder first", nullptr, "a/", [=] { home(), std::filesystem::current_path("a"); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        expect(row.path, {7}, StrEq(block(3, "tavik_x", string("from ") + row.due, "TAVIK_SEVEN")),
               row.prepare);
    }
    expect("bad/:a/", {7}, EndsWith(fallback(7))); // the first file that exists counts
    unsetenv("TAVIKTEST_A");
}

TEST_F(MessageFileDeathTest, UnusableFilesAreReportedOnce)
{
    const string good = image(kRecords), no_format = "tavik_e.bin\nFile is not in tavierr.bin format.\n";
    const struct {
        const char *label, *path;
        string bytes, notice;
    } rows[] = {
        {"missing", "none/", "", "tavik_e.bin\nFile not found.\n"},
        {"other magic number", "./", image(kRecords, 2, false, 29433), no_format},
        {"other magic number, swapped", "./", image(kRecords, 2, true, 0x7273), no_format},
        {"empty", "./", "", ".\n"},
        {"half a header", "./", good.substr(0, 7), ".\n"},
        {"half the offsets", "./", image(kRecords, 2, true).substr(0, 30), ".\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        write("tavik_e.bin", row.bytes);
        expect(row.path, {7, 300, 7},
               AllOf(testing::StartsWith("Error in reading "),
                     EndsWith(row.notice + fallback(7) + fallback(300) + fallback(7)),
                     Not(testing::ContainsRegex("Error in reading .*Error in reading "))));
    }
    write("tavik_e.bin", good.substr(0, kTables)); // tables without records
    expect("./", {},
           testing::MatchesRegex("Error in reading .*tavik_e.bin for error message 300.\n"
                                 "Error from read.. when reading error message bin file.\nError code 8."),
           [] {
               set(TAVIK_SET_PRINT, 3, 0);
               for (long code : {300, 8}) {
                   raise_codes({code});
                   std::fputs(own(tavik_error_message()).c_str(), stderr);
               }
           });
}

// Whatever the file holds, the calls return.
TEST_F(MessageFileDeathTest, HostileFiles)
{
    const string good = image(kRecords);
    const auto word = [&](std::size_t index, unsigned value) {
        string file = good;
        file[2 * index] = static_cast<char>(value & 255);
        file[2 * index + 1] = static_cast<char>(value >> 8);
        return file;
    };
    const std::size_t offsets = 7 + kRecords.size();
    const std::pair<const char *, string> rows[] = {
        {"no messages", word(2, 0)},
        {"more messages than the file has", word(2, 65535)},
        {"alignment of 2^65535", word(6, 65535)},
        {"codes out of order", word(7, 65535)},
        {"first offset beyond the end", word(offsets, 65535)},
        {"offsets descend", word(offsets + 1, 0)},
        {"last offset far beyond the end", word(offsets + kRecords.size(), 65535)},
        {"records without an end", good.substr(0, kTables) + string(2000, 'n')},
        {"formats", image({{7, "%(i1%n)%(i1%s)%(i1%*d)%(l1%d)%(l1%n)%(r1%s)%(l9)%(i1", "%s%n%(l1%n)"}})},
    };
    for (const auto &[label, bytes] : rows) {
        SCOPED_TRACE(label);
        write("tavik_e.bin", bytes);
        expect("./", {7, 300, 40000, 65535, 8, 7}, testing::HasSubstr("from tavik_x.  "));
    }
}

} // namespace
