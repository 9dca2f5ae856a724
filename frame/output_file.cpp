#include "output_file.hpp"

#include "error.hpp"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavik {
namespace {

constexpr std::size_t longest_suffix = 64;

// No other call, thread or process makes the same one.
void append_suffix(char *name, std::size_t room)
{
    static std::atomic<unsigned> calls{0};
    std::snprintf(name, room, ".%ld-%u.part", static_cast<long>(getpid()),
                  calls.fetch_add(1, std::memory_order_relaxed));
}

} // namespace

OutputFile *OutputFile::open(const char *name, Workspace &workspace)
{
    auto *file = workspace.array<OutputFile>(1);
    auto *paths = workspace.array<char>(2 * PATH_MAX + longest_suffix);
    if (file == nullptr || paths == nullptr) return nullptr;
    *file = {};
    file->target_ = paths;
    file->beside_ = paths + PATH_MAX;
    if (!file->open_beside(name)) {
        file->beside_ = nullptr;
        file->stream_ = std::fopen(name, "w");
    }
    if (file->stream_ == nullptr) return nullptr;
    return workspace.keep(file, [](OutputFile *kept) { kept->abandon(); }) ? file : nullptr;
}

bool OutputFile::open_beside(const char *name)
{
    struct stat status {};
    // A symbolic link stays one: what it leads to is replaced.
    const bool exists = realpath(name, target_) != nullptr;
    if (exists) {
        if (stat(target_, &status) != 0 || !S_ISREG(status.st_mode) || access(target_, W_OK) != 0)
            return false;
    } else {
        const std::size_t length = std::strlen(name);
        struct stat link {};
        if (errno != ENOENT || lstat(name, &link) == 0 || length >= PATH_MAX) return false;
        std::memcpy(target_, name, length + 1);
    }
    const std::size_t length = std::strlen(target_);
    std::memcpy(beside_, target_, length);
    append_suffix(beside_ + length, longest_suffix);
    constexpr mode_t everybody = 0666; // less what the process masks
    const int descriptor = ::open(beside_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, everybody);
    if (descriptor < 0) return false;
    if (exists) (void)!fchmod(descriptor, status.st_mode & 07777); // the new file may be read as the old one
    stream_ = fdopen(descriptor, "w");
    if (stream_ != nullptr) return true;
    close(descriptor);
    unlink(beside_);
    return false;
}

bool OutputFile::finish()
{
    FILE *stream = stream_;
    stream_ = nullptr;
    if (std::fclose(stream) == 0 && (beside_ == nullptr || std::rename(beside_, target_) == 0)) {
        beside_ = nullptr;
        return true;
    }
    const int reason = errno;
    abandon();
    errno = reason;
    return false;
}

void OutputFile::abandon()
{
    if (stream_ != nullptr) std::fclose(stream_);
    stream_ = nullptr;
    if (beside_ != nullptr) unlink(beside_);
    beside_ = nullptr;
}

} // namespace tavik
