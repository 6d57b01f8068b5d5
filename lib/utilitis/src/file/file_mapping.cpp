// CFileMapping and CFileMapping::CView.
//
// Both are shared-ownership records like CSysFile: a heap counter shared by
// copies, cleared out of the value before the last owner releases, so a
// failing release still leaves the value empty and never releases twice.
// The mapping's descriptor is closed with the close-on-exec duplicate or the
// open of PosixOpenFile behind it; a view is an mmap of that descriptor,
// which the system keeps alive on its own, so views outlive their mapping.

#include "orlo/file_mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "file/sysfile_impl.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"

namespace Orlo {

namespace {

constexpr SysErrorText kMapErrors[] = {
    {EACCES, "access denied"},
    {EBADF, "invalid descriptor"},
    {EINVAL, "invalid size, address, or flags argument"},
    {EAGAIN, "mapping could not be locked in memory due to a lack of resources"},
    {ENOMEM, "insufficient memory"},
};

constexpr SysErrorText kUnmapErrors[] = {{EINVAL, "invalid address or size"}};

constexpr SysErrorText kViewFlushErrors[] = {
    {EBUSY, "some or all of the addresses range are locked"},
    {EINVAL, "invalid address or size"},
    {ENOMEM, "address space out-of-range"},
};

uint32_t PageSize() noexcept {
    static const uint32_t size = uint32_t(sysconf(_SC_PAGESIZE));
    return size;
}

// The text of /proc/<pid>/maps. Such files report a size of 0, so they are
// read until the end rather than by their size.
stringEx ReadMapsOf(pid_t pid) {
    stringEx path("/proc/");
    path.AppendInt(int32_t(pid));
    path.append("/maps");
    const int fd = IMPL::RetryOnSignal([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); });
    int error = errno;
    stringEx text;
    if (fd != -1) {
        char chunk[4096];
        ssize_t count = 0;
        while ((count = IMPL::RetryOnSignal([&] { return read(fd, chunk, sizeof chunk); })) > 0)
            text.append(chunk, uint32_t(count));
        error = errno;
        IMPL::CloseDescriptor(fd);
        if (count == 0) return text;
    }
    throw fmppExp(ExpMessage("CFileMapping::GetFileName - failed read the maps of current process")
                      .Detail("  maps file  = ", path)
                      .SysError("  error code = ", "  error desc = ", error),
                  FileCode::Query);
}

// The path field of the line of `maps` whose range holds `address`; false if
// no line does. A line reads "start-end perms offset device inode   path",
// and the path may hold blanks.
bool FindMappedPath(const stringEx& maps, uintptr_t address, stringEx& path) {
    const char* line = maps.c_str();
    const char* const end = line + maps.size();
    while (line < end) {
        const char* next = line;
        while (next < end && *next != '\n')
            ++next;
        char* cursor = nullptr;
        const uintptr_t start = strtoull(line, &cursor, 16);
        const uintptr_t stop = strtoull(cursor + 1, &cursor, 16);
        if (address >= start && address < stop) {
            for (int field = 0; field < 4; ++field) {  // perms, offset, device, inode
                while (cursor < next && *cursor == ' ')
                    ++cursor;
                while (cursor < next && *cursor != ' ')
                    ++cursor;
            }
            while (cursor < next && *cursor == ' ')
                ++cursor;
            path.assign(cursor, uint32_t(next - cursor));
            return true;
        }
        line = next + 1;
    }
    return false;
}

}  // namespace

// ---- views ----------------------------------------------------------------------------------

CFileMapping::CView SetupMapView(int fd, int64_t offset, uint32_t size, uint32_t protection,
                                 void* address) {
    const uint32_t delta = uint32_t(offset % PageSize());
    const bool copyOnWrite = protection == kMapCopyOnWrite;
    const int prot = copyOnWrite ? PROT_READ | PROT_WRITE : int(protection);
    const int flags = copyOnWrite ? MAP_PRIVATE : MAP_SHARED;
    auto owner = std::make_unique<CFileMapping::CView::Counter>(1);
    // The length is `size`, not delta + size: a view at an unaligned offset
    // maps delta bytes fewer than it exposes (see the header).
    void* base = mmap(address, size, prot, flags, fd, off_t(offset - delta));
    if (base == MAP_FAILED) {
        const int error = errno;
        throw fmppExp(ExpMessage("SetupMapView - failed create file view")
                          .Hex("  size        = ", size)
                          .Pointer("  address arg = ", address)
                          .Hex("  protection  = ", uint32_t(prot))
                          .Hex("  flags       = ", uint32_t(flags))
                          .SysError("  error code  = ", "  error desc  = ", error, kMapErrors),
                      FileCode::ViewCreate);
    }
    CFileMapping::CView view;
    view.m_address = static_cast<char*>(base) + delta;
    view.m_size = size;
    view.m_owner = owner.release();
    view.m_delta = delta;
    return view;
}

CFileMapping::CView::CView(const CView& other) noexcept
    : m_address(other.m_address),
      m_size(other.m_size),
      m_owner(other.m_owner),
      m_delta(other.m_delta) {
    if (m_owner) m_owner->fetch_add(1, std::memory_order_relaxed);
}

CFileMapping::CView::CView(CView&& other) noexcept
    : m_address(std::exchange(other.m_address, nullptr)),
      m_size(std::exchange(other.m_size, 0)),
      m_owner(std::exchange(other.m_owner, nullptr)),
      m_delta(std::exchange(other.m_delta, 0)) {}

CFileMapping::CView& CFileMapping::CView::operator=(const CView& other) {
    if (this != &other) *this = CView(other);
    return *this;
}

CFileMapping::CView& CFileMapping::CView::operator=(CView&& other) {
    if (this == &other) return *this;
    CView former(std::move(*this));
    m_address = std::exchange(other.m_address, nullptr);
    m_size = std::exchange(other.m_size, 0);
    m_owner = std::exchange(other.m_owner, nullptr);
    m_delta = std::exchange(other.m_delta, 0);
    former.Release();
    return *this;
}

CFileMapping::CView::~CView() noexcept(false) {
    ThrowUnlessUnwinding([&] { Release(); });
}

void CFileMapping::CView::Flush() {
    GuardDeclared<fmppExp>([&] {
        char* base = m_address - m_delta;
        if (msync(base, size_t(m_delta) + m_size, MS_SYNC) == 0) return;
        const int error = errno;
        throw fmppExp(
            ExpMessage("CFileMapping::CView::Flush - failed flush view to file")
                .Pointer("  view addr      = ", m_address)
                .Hex("  view size      = ", m_size)
                .SysError("  sys error code = ", "  sys error desc = ", error, kViewFlushErrors),
            FileCode::ViewFlush);
    });
}

void CFileMapping::CView::Release() {
    GuardDeclared<fmppExp>([&] {
        char* base = std::exchange(m_address, nullptr) - m_delta;
        const uint32_t length = std::exchange(m_delta, 0) + std::exchange(m_size, 0);
        Counter* owner = std::exchange(m_owner, nullptr);
        if (!owner || owner->fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        delete owner;
        _Release(base, length);
    });
}

void CFileMapping::CView::_Release(char* base, uint32_t length) {
    if (munmap(base, length) == 0) return;
    const int error = errno;
    throw fmppExp(ExpMessage("CFileMapping::CView::_Release - failed unmap file view")
                      .Pointer("  address    = ", base)
                      .Hex("  size       = ", length)
                      .SysError("  error code = ", "  error desc = ", error, kUnmapErrors),
                  FileCode::ViewRelease);
}

// ---- the mapping -------------------------------------------------------------------------------

CFileMapping::CFileMapping(const CSysFile& file) : m_path(file.GetPath()) {
    GuardDeclared<fmppExp>([&] {
        auto owner = std::make_unique<Counter>(1);
        const int handle =
            IMPL::RetryOnSignal([&] { return fcntl(file.GetHandle(), F_DUPFD_CLOEXEC, 0); });
        if (handle == -1) {
            const int error = errno;
            throw fmppExp(
                ExpMessage("CFileMapping::CFileMapping - failed create file mapping")
                    .Detail("  file path  = ", m_path)
                    .SysError("  error code = ", "  error desc = ", error, IMPL::kDuplicateErrors),
                FileCode::MapCreate);
        }
        m_handle = handle;
        m_owner = owner.release();
    });
}

CFileMapping::CFileMapping(const stringEx& path, int access, int create, int share, uint32_t mode,
                           uint32_t options)
    : m_path(path) {
    GuardDeclared<fmppExp>([&] {
        auto owner = std::make_unique<Counter>(1);
        try {
            m_handle = PosixOpenFile(path, access, create, share, mode, options);
        } catch (const byExp& inner) {
            throw fmppExp(ExpMessage("CFileMapping::CFileMapping - error open file mapping")
                              .Detail("  file path = ", path)
                              .Wraps(inner),
                          FileCode::MapOpen);
        }
        m_owner = owner.release();
    });
}

CFileMapping::CFileMapping(const CFileMapping& other) noexcept
    : m_handle(other.m_handle), m_owner(other.m_owner), m_path(other.m_path) {
    if (m_owner) m_owner->fetch_add(1, std::memory_order_relaxed);
}

CFileMapping::CFileMapping(CFileMapping&& other) noexcept
    : m_handle(std::exchange(other.m_handle, -1)),
      m_owner(std::exchange(other.m_owner, nullptr)),
      m_path(std::move(other.m_path)) {}

CFileMapping& CFileMapping::operator=(const CFileMapping& other) {
    if (this != &other) *this = CFileMapping(other);
    return *this;
}

CFileMapping& CFileMapping::operator=(CFileMapping&& other) {
    if (this == &other) return *this;
    CFileMapping former(std::move(*this));
    m_handle = std::exchange(other.m_handle, -1);
    m_owner = std::exchange(other.m_owner, nullptr);
    m_path = std::move(other.m_path);
    former.Close();
    return *this;
}

CFileMapping::~CFileMapping() noexcept(false) {
    ThrowUnlessUnwinding([&] { Close(); });
}

CFileMapping::CView CFileMapping::MapView(int64_t offset, uint32_t size, uint32_t protection,
                                          void* address) const {
    return GuardDeclared<fmppExp>(
        [&] { return SetupMapView(m_handle, offset, size, protection, address); });
}

stringEx CFileMapping::GetFileName() const {
    return GuardDeclared<fmppExp>([&] {
        const CView probe = MapView(0, 1, PROT_READ);
        const pid_t pid = getpid();
        stringEx path;
        if (FindMappedPath(ReadMapsOf(pid), uintptr_t(probe.Address()), path)) return path;
        ExpMessage message("CFileMapping::GetFileName - failed get file name of current mapping");
        message.Int("  self pid   = ", int32_t(pid)).Detail("  error desc = ", "mapping not found");
        // This message ends in a line feed of its own.
        message.Append("\n");
        throw fmppExp(message, FileCode::MapFileName);
    });
}

void CFileMapping::Close() {
    GuardDeclared<fmppExp>([&] { Release(); });
}

void CFileMapping::Release() {
    const int handle = std::exchange(m_handle, -1);
    Counter* owner = std::exchange(m_owner, nullptr);
    const stringEx path = m_path;
    if (!owner || owner->fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    delete owner;
    __Close(handle, path);
}

void CFileMapping::__Close(int handle, const stringEx& path) {
    const int error = IMPL::CloseDescriptor(handle);
    if (error == 0) return;
    throw fmppExp(ExpMessage("CFileMapping::__Close - error close file descriptor")
                      .Detail("  file path  = ", path)
                      .SysError("  sys error  = ", "  error desc = ", error, IMPL::kCloseErrors),
                  FileCode::MapClose);
}

}  // namespace Orlo
