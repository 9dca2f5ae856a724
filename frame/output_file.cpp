#include "output_file.hpp"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavik {
namespace {

constexpr std::size_t longest_name = 64; // of the file beside the target

bool starts_with(const char *name, const char *folder)
{
    return std::strncmp(name, folder, std::strlen(folder)) == 0;
}

// What must still be true of the file afterwards can be given to a new one.
bool is_replaceable(const struct stat &status)
{
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_uid == geteuid();
}

// A new file in the folder of the target, under a name that nobody has. -1 when there is none: errno tells why.
int create_beside(const char *target, char *beside, mode_t mode)
{
    const char *slash = std::strrchr(target, '/');
    const std::size_t folder = slash != nullptr ? static_cast<std::size_t>(slash - target) + 1 : 0;
    std::memcpy(beside, target, folder);
    constexpr int most_tries = 100;
    for (int k = 0; k < most_tries; ++k) {
        std::uint64_t random = 0;
        if (getrandom(&random, sizeof random, GRND_NONBLOCK) != sizeof random)
            random = static_cast<std::uint64_t>(getpid()) * most_tries + static_cast<std::uint64_t>(k);
        std::snprintf(beside + folder, longest_name, ".%016llx.part",
                      static_cast<unsigned long long>(random));
        const int descriptor = ::open(beside, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (descriptor >= 0 || errno != EEXIST) return descriptor;
    }
    return -1;
}

// Whom the old file let read and write. Where its group cannot be kept, nobody is let in by the group.
void copy_permissions(const struct stat &status, int descriptor)
{
    mode_t mode = status.st_mode & 0777;
    if (fchown(descriptor, static_cast<uid_t>(-1), status.st_gid) != 0) mode &= 0707;
    (void)!fchmod(descriptor, mode);
}

} // namespace

OutputFile *OutputFile::open(const char *name, Workspace &workspace)
{
    auto *file = workspace.array<OutputFile>(1);
    auto *paths = workspace.array<char>(2 * PATH_MAX + longest_name);
    if (file == nullptr || paths == nullptr) return nullptr;
    *file = {};
    file->target_ = paths;
    file->beside_ = paths + PATH_MAX;
    Place place = file->find_place(name);
    if (place == Place::beside) place = file->open_beside();
    if (place != Place::beside) file->beside_ = nullptr;
    if (place == Place::target) file->stream_ = std::fopen(name, "we");
    if (file->stream_ == nullptr) return nullptr;
    return workspace.keep(file, [](OutputFile *kept) { kept->abandon(); }) ? file : nullptr;
}

// Sets target_. A symbolic link stays one: what it leads to is replaced.
OutputFile::Place OutputFile::find_place(const char *name)
{
    // Their names stand for what is open already.
    if (starts_with(name, "/dev/") || starts_with(name, "/proc/")) return Place::target;
    struct stat status {};
    if (realpath(name, target_) != nullptr)
        return stat(target_, &status) == 0 && is_replaceable(status) && eaccess(target_, W_OK) == 0
                   ? Place::beside
                   : Place::target;
    const std::size_t length = std::strlen(name);
    const bool is_new = errno == ENOENT && lstat(name, &status) != 0 && errno == ENOENT;
    if (!is_new || length == 0 || length >= PATH_MAX)
        return Place::target; // opening it will tell what is wrong
    std::memcpy(target_, name, length + 1);
    return Place::beside;
}

OutputFile::Place OutputFile::open_beside()
{
    struct stat status {};
    const bool exists = stat(target_, &status) == 0;
    const int descriptor = create_beside(target_, beside_, exists ? 0600 : 0666);
    if (descriptor < 0)
        return errno == EACCES || errno == EPERM || errno == EROFS ? Place::target : Place::nowhere;
    if (exists) copy_permissions(status, descriptor);
    stream_ = fdopen(descriptor, "w");
    if (stream_ != nullptr) return Place::beside;
    close(descriptor);
    unlink(beside_);
    errno = ENOMEM;
    return Place::nowhere;
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
