// CFileMapping and its views: a file mapped into memory.
//
// A CFileMapping holds a descriptor of its own: a duplicate of an open
// CSysFile's, so the mapping outlives the file object, or one it opened with
// PosixOpenFile. The descriptor is shared between copies the way CSysFile
// shares its own: the last copy closes it. MapView maps a range of the file
// and hands back a CView, which is again shared by copies and unmapped by
// the last; a view doesn't need its mapping to stay alive.
//
// A view may start anywhere in the file. The system maps from a multiple of
// the page size, so the mapping starts `delta` bytes (the offset modulo the
// page size) before the requested offset, and the view's address points at
// the requested byte. The length mapped is the requested size, not size plus
// delta, so a view at an unaligned offset reaches its last delta bytes only
// when they fall in the last mapped page; flush and unmap cover delta plus
// size bytes from the mapped base. Callers that want every byte keep offsets
// page-aligned.
//
// mmap, msync and munmap are called once each: they are not interrupted by
// signals. Failures are fmppExp with the file family's codes.

#ifndef ORLO_FILE_MAPPING_H
#define ORLO_FILE_MAPPING_H

#include <atomic>
#include <cstdint>

#include "orlo/stringEx.h"
#include "orlo/sysfile.h"

namespace Orlo {

// The protection argument of a view that asks for a private copy: readable
// and writable, and nothing written reaches the file. Any other value is a
// set of PROT_ bits for a view shared with the file.
inline constexpr uint32_t kMapCopyOnWrite = 0x40000000;

class CFileMapping {
  public:
    class CView {
      public:
        // No view: a null address and size 0.
        CView() noexcept = default;
        // Shares the view (one atomic increment).
        CView(const CView& other) noexcept;
        CView(CView&& other) noexcept;
        // Release this value's share first, so they throw what Release throws.
        CView& operator=(const CView& other);
        CView& operator=(CView&& other);
        // Releases this value's share. A failing unmap throws as Release,
        // unless an exception is already propagating.
        ~CView() noexcept(false);

        // The requested byte of the file, valid while a copy of the view
        // lives; null for no view.
        char* Address() const noexcept { return m_address; }
        // The requested size.
        uint32_t Size() const noexcept { return m_size; }
        // How far before Address the mapping starts: the requested offset
        // modulo the page size.
        uint32_t Delta() const noexcept { return m_delta; }

        // Writes the view's changes to the file and waits for them
        // (msync MS_SYNC over delta plus size bytes). Throws fmppExp
        // (FileCode::ViewFlush) "CFileMapping::CView::Flush - failed flush
        // view to file".
        void Flush();
        // Drops this value's share; the last copy unmaps. Leaves this value
        // empty. Throws fmppExp (FileCode::ViewRelease)
        // "CFileMapping::CView::_Release - failed unmap file view"; the value
        // is empty all the same.
        void Release();

      private:
        friend CView SetupMapView(int fd, int64_t offset, uint32_t size, uint32_t protection,
                                  void* address);
        using Counter = std::atomic<int32_t>;

        // munmap of the mapping that the last copy held.
        static void _Release(char* base, uint32_t length);

        char* m_address = nullptr;
        uint32_t m_size = 0;
        Counter* m_owner = nullptr;
        uint32_t m_delta = 0;
    };

    // A mapping of the file that `file` has open, on a duplicate of its
    // descriptor. Throws fmppExp (FileCode::MapCreate) "CFileMapping::
    // CFileMapping - failed create file mapping" when the descriptor can't be
    // duplicated (a closed file, for one).
    explicit CFileMapping(const CSysFile& file);
    // A mapping of `path`, opened as it stands by PosixOpenFile with these
    // arguments. Throws fmppExp (FileCode::MapOpen) "CFileMapping::
    // CFileMapping - error open file mapping" wrapping the open's failure.
    CFileMapping(const stringEx& path, int access, int create = 0, int share = FileShare::None,
                 uint32_t mode = 0666, uint32_t options = 0);
    CFileMapping(const CFileMapping& other) noexcept;
    CFileMapping(CFileMapping&& other) noexcept;
    CFileMapping& operator=(const CFileMapping& other);
    CFileMapping& operator=(CFileMapping&& other);
    // Releases this value's share of the descriptor as Close does; during
    // unwinding a failure is dropped.
    ~CFileMapping() noexcept(false);

    // Maps `size` bytes from `offset` (see SetupMapView). `address` is a
    // hint for where, or null. Throws what SetupMapView throws.
    CView MapView(int64_t offset, uint32_t size, uint32_t protection,
                  void* address = nullptr) const;

    // The path of the file behind the mapping as the system names it, found
    // by mapping one byte of it and looking the address up in the process's
    // own /proc/<pid>/maps. Throws what MapView throws (a descriptor opened
    // write-only can't be mapped); fmppExp (FileCode::MapFileName)
    // "CFileMapping::GetFileName - failed get file name of current mapping"
    // when no entry holds the address; fmppExp (FileCode::Query) when the
    // maps file can't be read.
    stringEx GetFileName() const;

    // Releases this value's share of the descriptor; the last owner closes
    // it. Throws fmppExp (FileCode::MapClose) "CFileMapping::__Close - error
    // close file descriptor"; the value is closed all the same.
    void Close();

    // The descriptor, -1 once closed.
    int GetHandle() const noexcept { return m_handle; }
    // The path the mapping was made from, as given or as the file held it.
    const stringEx& GetPath() const noexcept { return m_path; }

  private:
    using Counter = std::atomic<int32_t>;

    void Release();
    static void __Close(int handle, const stringEx& path);

    int32_t m_handle = -1;
    Counter* m_owner = nullptr;
    stringEx m_path;
};

// Maps `size` bytes of `fd` from `offset`: the mapping starts at `offset`
// rounded down to the page size and is `size` bytes long; the view's address
// is the mapped base plus the difference (its Delta). `protection`
// kMapCopyOnWrite makes a private writable copy, any other value is PROT_
// bits of a mapping shared with the file. `address` is a hint, or null.
// Throws fmppExp (FileCode::ViewCreate) "SetupMapView - failed create file
// view" with the size, hint, protection and flags.
CFileMapping::CView SetupMapView(int fd, int64_t offset, uint32_t size, uint32_t protection,
                                 void* address);

}  // namespace Orlo

#endif  // ORLO_FILE_MAPPING_H
