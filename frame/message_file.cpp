#include "message_file.hpp"
#include "message_file_format.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavik {

using namespace message_file;

namespace {

constexpr char bad_format[] = "File is not in tavierr.bin format";
constexpr int not_found = -1, read_error = -2;

// Reads until `size` bytes are there or the file ends. Negative on failure.
ssize_t read_fully(int descriptor, void *buffer, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = read(descriptor, static_cast<char *>(buffer) + done, size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

// One element of the search path with the file name behind it. A leading $NAME is replaced by that variable.
// False when the result is longer than a path can be.
bool make_candidate(const char *element, std::size_t length, char (&candidate)[PATH_MAX])
{
    std::size_t used = 0;
    const auto append = [&](const char *text, std::size_t count) {
        if (count >= sizeof candidate - used) return false;
        std::memcpy(candidate + used, text, count);
        used += count;
        return true;
    };
    if (length > 0 && element[0] == '$') {
        const char *end = std::find(element, element + length, '/');
        char variable[256];
        const auto size = static_cast<std::size_t>(end - element - 1);
        if (size >= sizeof variable) return false;
        std::memcpy(variable, element + 1, size);
        variable[size] = '\0';
        const char *value = std::getenv(variable);
        if (value != nullptr && !append(value, std::strlen(value))) return false;
        length -= static_cast<std::size_t>(end - element);
        element = end;
    }
    if (!append(element, length) || !append(message_file::name, sizeof message_file::name - 1)) return false;
    candidate[used] = '\0';
    return true;
}

// Opens the first file on the path that exists; -1 when there is none.
int open_on_path(const char *path)
{
    for (const char *element = path;;) {
        const char *end = element + std::strcspn(element, ":");
        char candidate[PATH_MAX];
        struct stat status;
        if (make_candidate(element, static_cast<std::size_t>(end - element), candidate) &&
            stat(candidate, &status) == 0) {
            // Non-blocking, so that a pipe of that name cannot hold the process up.
            return ::open(candidate, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        }
        if (*end == '\0') return -1;
        element = end + 1;
    }
}

} // namespace

const char *MessageFile::open(const char *path)
{
    descriptor_ = open_on_path(path);
    const char *reason = descriptor_ < 0 ? "File not found" : read_tables();
    if (reason != nullptr) close();
    return reason;
}

void MessageFile::close()
{
    if (descriptor_ >= 0) ::close(descriptor_);
    std::free(codes_);
    *this = MessageFile{};
}

const char *MessageFile::read_tables()
{
    struct stat status;
    if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return bad_format;
    std::uint16_t header[header_words];
    if (read_fully(descriptor_, header, sizeof header) != static_cast<ssize_t>(sizeof header))
        return bad_format;
    swapped_ = header[magic_word] != magic;
    if (swapped_) std::transform(header, header + header_words, header, swap_bytes);
    if (header[magic_word] != magic || header[alignment_word] > largest_alignment) return bad_format;
    count_ = header[count_word];
    record_size_ = std::size_t{header[template_size_word]} + header[name_size_word] + 2;
    alignment_ = header[alignment_word];

    const std::size_t words = 2 * count_ + 1, size = words * sizeof(std::uint16_t);
    codes_ = static_cast<std::uint16_t *>(std::malloc(size));
    if (codes_ == nullptr) return "Out-of-memory";
    offsets_ = codes_ + count_;
    if (read_fully(descriptor_, codes_, size) != static_cast<ssize_t>(size)) return bad_format;
    if (swapped_) std::transform(codes_, codes_ + words, codes_, swap_bytes);
    return nullptr;
}

int MessageFile::find_index(long code) const
{
    const std::uint16_t wanted = key(code);
    const std::uint16_t *end = codes_ + count_;
    const std::uint16_t *found = std::lower_bound<const std::uint16_t *>(codes_, end, wanted);
    return found != end && *found == wanted ? static_cast<int>(found - codes_) : not_found;
}

// Reads record `index` into the thread's buffer, closed by two NULs whatever it holds. Returns the reason of
// a failure, or null.
const char *MessageFile::read_record(MessageLookup &lookup, int index) const
{
    if (lookup.capacity < record_size_ + 2) {
        auto *record = static_cast<char *>(std::realloc(lookup.record, record_size_ + 2));
        if (record == nullptr) return "Out-of-memory";
        lookup.record = record;
        lookup.capacity = record_size_ + 2;
    }
    const long long first = offsets_[index], next = offsets_[index + 1];
    const long long unit = 1LL << alignment_;
    const auto start = static_cast<off_t>(data_start(count_, alignment_)) + first * unit;
    if (lseek(descriptor_, start, SEEK_SET) != start) return "Cannot seek to correct location";
    const long long length =
        std::min<long long>((next - first + 1) * unit, static_cast<long long>(record_size_));
    const ssize_t got =
        length > 0 ? read_fully(descriptor_, lookup.record, static_cast<std::size_t>(length)) : 0;
    if (got <= 0) return "Error from read() when reading error message bin file";
    lookup.record[got] = lookup.record[got + 1] = '\0';
    return nullptr;
}

void MessageFile::look_up(MessageLookup &lookup, long code) const
{
    std::snprintf(lookup.decimal_name, sizeof lookup.decimal_name, "%ld", code);
    std::snprintf(lookup.substitute, sizeof lookup.substitute, "Error code %ld.", code);
    lookup.text = lookup.substitute;
    lookup.name = lookup.decimal_name;
    lookup.code = code;
    lookup.index = descriptor_ >= 0 ? find_index(code) : not_found;
    if (lookup.index == not_found) return;

    lookup.failure = read_record(lookup, lookup.index);
    if (lookup.failure != nullptr) {
        lookup.index = read_error;
        std::snprintf(lookup.substitute, sizeof lookup.substitute,
                      "Error in reading %s for error message %d.\n%s.\n", message_file::name,
                      static_cast<int>(code), lookup.failure);
        return;
    }
    lookup.text = lookup.record;
    const char *symbolic_name = lookup.record + std::strlen(lookup.record) + 1;
    if (*symbolic_name != '\0') lookup.name = symbolic_name;
}

} // namespace tavik
