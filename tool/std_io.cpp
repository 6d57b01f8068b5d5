// Standard input and output for mendo; see std_io.h.

#include "std_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace Orlo {
namespace {

// Reads go in steps of at least this much room.
constexpr uint32_t kReadStep = 1u << 20;
// Larger pipes mean fewer wake-ups for both ends; refusal is harmless.
constexpr int kPipeSize = 1 << 20;

void WidenPipe(int fd) {
    struct stat info;
    if (fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode)) (void)fcntl(fd, F_SETPIPE_SZ, kPipeSize);
}

// A regular file on standard input tells its size: one exact reservation.
void ReserveForRegularFile(int fd, byteEx& content) {
    struct stat info;
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return;
    off_t here = lseek(fd, 0, SEEK_CUR);
    if (here < 0 || info.st_size <= here) return;
    uint64_t wanted = uint64_t(content.size()) + uint64_t(info.st_size - here) + 2;
    if (wanted < byteEx::max_size()) content.reserve_exact(uint32_t(wanted));
}

void WriteAll(int fd, std::string_view bytes) {
    const char* p = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
        ssize_t n = write(fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        p += n;
        left -= size_t(n);
    }
}

}  // namespace

// A pipe does not tell how much is coming. Once the first step has filled,
// the input is a large one: move it to a fresh block with room for much
// more, which the buffer asks the kernel to back with huge pages, so the
// block is neither moved as it grows nor faulted in a small page at a
// time. Untouched pages cost nothing; where the room can't be had (a limit
// on address space), the block grows step by step.
void ReserveForLargePipe(byteEx& content) {
    constexpr uint32_t kLargeRoom = uint32_t(1) << 30;
    if (content.capacity() >= kLargeRoom) return;
    byteEx large;
    try {
        large.assign_discard(kLargeRoom);
    } catch (const std::bad_alloc&) {
        return;
    }
    large.append(content.c_str(), content.size());
    content.swap(large);
}

void ReadStandardInput(byteEx& content) {
    WidenPipe(STDIN_FILENO);
    ReserveForRegularFile(STDIN_FILENO, content);
    for (;;) {
        // Fill the room there is; a regular file was given exactly enough,
        // so its end is met without growing the block again.
        uint32_t room = content.is_null() ? 0 : content.capacity() - content.size() - 1;
        if (room == 0 && content.size() >= kReadStep) ReserveForLargePipe(content);
        room = content.is_null() ? 0 : content.capacity() - content.size() - 1;
        if (room == 0) room = kReadStep;
        char* where = content.prepare_append(room);
        ssize_t n = read(STDIN_FILENO, where, room);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        content.commit_append(uint32_t(n));
    }
    content.push_back(static_cast<char>(0xFF));
}

void ExpectStdout(uint64_t bytes) {
    static bool widened = false;
    if (widened || bytes < uint64_t(kPipeSize)) return;
    widened = true;
    WidenPipe(STDOUT_FILENO);
}

void WriteStdout(std::string_view bytes) {
    ExpectStdout(bytes.size());
    WriteAll(STDOUT_FILENO, bytes);
}

void WriteStderr(std::string_view bytes) {
    WriteAll(STDERR_FILENO, bytes);
}

}  // namespace Orlo
