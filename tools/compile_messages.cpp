// Message compiler: gathers the messages.txt of every folder into the binary message file.
//
//     compile_messages OUTPUT FILE...
//
// FILEs named messages.txt hold messages; all others are C++ sources, in which the codes that are raised are
// looked for. Refused: a duplicate code, a code or name that is none, an unknown escape, a parameter kind
// that no format fits, a file too large for the format, and a code that is raised without a message.

#include "message_file_format.hpp"
#include "placeholder.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace format = tavik::message_file;

struct Message {
    std::string name, text, origin;
};

int faults = 0;

void complain(const std::string &origin, const std::string &what)
{
    std::cerr << origin << ": " << what << '\n';
    ++faults;
}

class Messages {
public:
    void read(const std::string &path)
    {
        std::ifstream in(path);
        if (!in) complain(path, "cannot be read");
        std::string line;
        for (int number = 1; std::getline(in, line); ++number) {
            if (line.empty() || line[0] == '#') continue;
            if (line[0] == ' ') continue_text(line.substr(line.find_first_not_of(' ')));
            else start(line, path + ":" + std::to_string(number));
        }
    }

    void check() const
    {
        if (by_key.size() > 65535) complain("messages", "more than the format can hold");
        for (const auto &[key, message] : by_key) {
            if (message.text.empty()) complain(message.origin, "no text");
            check_escapes(message);
        }
    }

    void check_raised(const std::string &path) const
    {
        std::ifstream in(path);
        const std::string source{std::istreambuf_iterator<char>(in), {}};
        // A statement that raises, and the literals of at least three digits in it.
        static const std::regex raising(R"((ermes|raise\w*|\w*_or_raise|warn\w*|unknown)\s*\(([^;{}]*)\))");
        static const std::regex literal(R"(\b[1-9]\d{2,4}\b)");
        for (std::sregex_iterator call(source.begin(), source.end(), raising), none; call != none; ++call) {
            const std::string arguments = (*call)[2];
            for (std::sregex_iterator code(arguments.begin(), arguments.end(), literal); code != none;
                 ++code) {
                if (by_key.count(format::key(std::stol(code->str()))) == 0)
                    complain(path, "code " + code->str() + " is raised without a message");
            }
        }
    }

    bool write(const std::string &path) const
    {
        std::size_t longest_text = 0, longest_name = 0, bytes = 0;
        for (const auto &[key, message] : by_key) {
            longest_text = std::max(longest_text, message.text.size());
            longest_name = std::max(longest_name, message.name.size());
            bytes += message.text.size() + message.name.size() + 2;
        }
        unsigned alignment = 1; // the smallest for which 16-bit offsets reach the last record
        while (((bytes + (by_key.size() << alignment)) >> alignment) > 65535) ++alignment;
        const std::size_t unit = std::size_t{1} << alignment;

        std::string records;
        std::vector<std::uint16_t> words(format::header_words), offsets;
        for (const auto &[key, message] : by_key) {
            words.push_back(key);
            offsets.push_back(static_cast<std::uint16_t>(records.size() / unit));
            records += message.text + '\0' + message.name + '\0';
            records.resize((records.size() + unit - 1) / unit * unit);
        }
        offsets.push_back(static_cast<std::uint16_t>(records.size() / unit));
        words[format::magic_word] = format::magic;
        words[format::count_word] = static_cast<std::uint16_t>(by_key.size());
        words[format::template_size_word] = static_cast<std::uint16_t>(longest_text);
        words[format::name_size_word] = static_cast<std::uint16_t>(longest_name);
        words[format::alignment_word] = static_cast<std::uint16_t>(alignment);
        words.insert(words.end(), offsets.begin(), offsets.end());

        std::string out(reinterpret_cast<const char *>(words.data()), words.size() * sizeof words[0]);
        out.resize(format::data_start(by_key.size(), alignment));
        std::ofstream file(path, std::ios::binary);
        file << out << records;
        file.close();
        if (!file) complain(path, "cannot be written");
        return static_cast<bool>(file);
    }

private:
    void start(const std::string &line, const std::string &origin)
    {
        std::istringstream fields(line);
        long code = 0;
        Message message{"", "", origin};
        if (!(fields >> code >> message.name) || code <= 0 || code > 65535)
            complain(origin, "no code and name");
        const auto [place, is_new] = by_key.emplace(format::key(code), message);
        if (!is_new) complain(origin, "code " + std::to_string(code) + " already at " + place->second.origin);
        current = &place->second;
    }

    void continue_text(const std::string &line)
    {
        if (current == nullptr) return;
        if (!current->text.empty()) current->text += ' ';
        current->text += line;
    }

    static void check_escapes(const Message &message)
    {
        const std::string &text = message.text;
        for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
            if (text[at + 1] == '/') continue;
            tavik::Placeholder placeholder;
            bool format_accepted = false;
            if (!tavik::read_placeholder(text.c_str() + at, placeholder, &format_accepted)) {
                complain(message.origin, "unknown escape at \"" + text.substr(at, 8) + "\"");
                continue;
            }
            if (placeholder.kind == tavik::ParameterKind::unknown || placeholder.number == 0)
                complain(message.origin, "no such parameter: \"" + text.substr(at, 8) + "\"");
            else if (!format_accepted)
                complain(message.origin,
                         "format does not fit the parameter: \"" + text.substr(at, 12) + "\"");
            at = static_cast<std::size_t>(placeholder.end - text.c_str()) - 1;
        }
    }

    std::map<std::uint16_t, Message> by_key;
    Message *current = nullptr;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::cerr << "usage: compile_messages OUTPUT FILE...\n";
        return 2;
    }
    Messages messages;
    std::vector<std::string> sources;
    for (int i = 2; i < argc; ++i) {
        const std::string path = argv[i];
        if (std::filesystem::path(path).filename() == "messages.txt") messages.read(path);
        else sources.push_back(path);
    }
    messages.check();
    for (const std::string &path : sources) messages.check_raised(path);
    return faults == 0 && messages.write(argv[1]) ? 0 : 1;
}
