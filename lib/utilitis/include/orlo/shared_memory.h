// Shared memory objects: named areas of memory that unrelated processes reach
// by the name alone.
//
// CSharedMemoryObject opens (or creates) the area of a name and maps a view
// of it for the life of the object; CProcMutex and CProcEvent keep their
// synchronisation objects in such an area, so the name is all that two
// processes have to agree on. The free functions are the steps that the
// object is made of, each calling one system function and reporting its
// failure as a shmemExp.
//
// Names take a leading "/", which is put in front when it is missing: "abc"
// and "/abc" are one area. Wide names are turned into narrow text in the
// present locale first.
//
// Who created the area matters: the creator initialises what lives in it and
// removes the name at the end. Create-or-attach first opens the name and
// creates it only if that fails, so a process that loses a race between the
// two steps believes it has created the area too. The flag is a hint for
// initialisation and nothing guards it; likewise an area left behind by a
// crashed creator is found by the next one as an existing area, possibly
// still of size 0, so a view of it must not be touched beyond its size.
//
// An object belongs to one thread; what lives in the area is synchronised by
// its users.

#ifndef ORLO_SHARED_MEMORY_H
#define ORLO_SHARED_MEMORY_H

#include <cstdint>

#include "orlo/stringEx.h"

namespace Orlo {

// Opens the area of `name` with the shm_open `flags` (O_RDWR, O_RDONLY, ...),
// creating it if it doesn't exist; a created area gets the size `size`
// unless that is 0. Returns the descriptor and sets `created` to whether
// this call created the area. Throws shmemExp: ShmemCode::Open if the area
// can't be opened or created, ShmemCode::SetSize if the size can't be set,
// in which case the new area is removed again.
int CreateSharedMemoryObject(const stringEx& name, int flags, uint32_t size, bool& created);
int CreateSharedMemoryObject(const wstringEx& name, int flags, uint32_t size, bool& created);

// Opens the area of `name`, which must exist. Returns the descriptor.
// Throws shmemExp (ShmemCode::Open), e.g. when nobody has created it.
int OpenSharedMemoryObject(const stringEx& name, int flags);
int OpenSharedMemoryObject(const wstringEx& name, int flags);

// Maps `size` bytes of the area from offset 0, shared, near `addressHint`
// (null: anywhere); `access` is the shm_open flags the area was opened with
// and gives the protection (read, or read and write). Returns the address.
// Throws shmemExp (ShmemCode::Map).
void* SetupMapView(int descriptor, uint32_t size, void* addressHint, int access);

// Closes `descriptor` and, if `remove`, removes `name`. Throws shmemExp
// (ShmemCode::Release) if either fails; a failed close removes nothing.
void CloseAndRemoveSharedMemoryObject(int descriptor, const stringEx& name, bool remove);
void CloseAndRemoveSharedMemoryObject(int descriptor, const wstringEx& name, bool remove);

// Selects the constructor of CSharedMemoryObject that attaches only.
struct open_existing_t {
    explicit open_existing_t() = default;
};
inline constexpr open_existing_t open_existing{};

class CSharedMemoryObject {
  public:
    // Attaches to the area of `name`, or creates it with `size` bytes, and
    // maps `size` bytes of it with the access of `flags` (O_RDWR or
    // O_RDONLY). Throws shmemExp as CreateSharedMemoryObject and
    // SetupMapView do; on a failed mapping the descriptor is closed and a
    // created area removed first.
    CSharedMemoryObject(const stringEx& name, int flags, uint32_t size);
    CSharedMemoryObject(const wstringEx& name, int flags, uint32_t size);
    // Attaches to the area of `name`, which must exist, and maps `size`
    // bytes. Throws shmemExp as OpenSharedMemoryObject and SetupMapView do.
    CSharedMemoryObject(open_existing_t, const stringEx& name, int flags, uint32_t size);
    CSharedMemoryObject(open_existing_t, const wstringEx& name, int flags, uint32_t size);
    CSharedMemoryObject(const CSharedMemoryObject&) = delete;
    CSharedMemoryObject& operator=(const CSharedMemoryObject&) = delete;
    // Unmaps the view and closes the descriptor; the creator also removes
    // the name. Throws shmemExp (ShmemCode::Release), unless an exception
    // is already propagating.
    virtual ~CSharedMemoryObject() noexcept(false);

    // The name with its leading "/".
    const stringEx& Name() const noexcept { return m_name; }
    int Descriptor() const noexcept { return m_descriptor; }
    // The mapped view, `Size()` bytes.
    void* Address() const noexcept { return m_address; }
    uint32_t Size() const noexcept { return m_size; }
    // True if this object created the area, and so initialises and removes it.
    bool CreatedByMe() const noexcept { return m_createdByMe; }

  protected:
    // Makes the destructor leave the name in place, for an area whose
    // contents could not be torn down and may still be in use elsewhere.
    void LeaveAreaBehind() noexcept { m_createdByMe = false; }

  private:
    void MapOrDiscard(int flags);
    void Release();

    stringEx m_name;
    int32_t m_descriptor = -1;
    void* m_address = nullptr;
    uint32_t m_size = 0;
    bool m_createdByMe = false;
};

}  // namespace Orlo

#endif  // ORLO_SHARED_MEMORY_H
