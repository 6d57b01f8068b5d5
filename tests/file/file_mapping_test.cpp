// CFileMapping and its views on real files: reading and writing through a
// view, private copies, unaligned offsets, ownership of views and
// descriptors, the file name lookup, and the failure texts.

#include "orlo/file_mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "file/file_test_support.h"
#include "orlo/exceptions.h"

namespace Orlo {
namespace {

using filetest::Catch;
using filetest::Ex;
using filetest::GetFile;
using filetest::IsOpenDescriptor;
using filetest::PutFile;
using filetest::Str;
using filetest::TempTree;

// Whether the page at `address` is mapped in this process.
bool IsMapped(const void* address) {
    const uintptr_t page = uintptr_t(address) & ~uintptr_t(sysconf(_SC_PAGESIZE) - 1);
    return msync(reinterpret_cast<void*>(page), 1, MS_ASYNC) == 0;
}

TEST(FileMapping, ViewsReadWriteOrCopyTheRequestedBytes) {
    TempTree dir;
    const std::string path = dir / "mapped";
    std::string bytes(3 * 4096, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = char('a' + (i * 7 + i / 4096) % 26);
    PutFile(path, bytes);
    CSysFile file;
    file.Open(Ex(path), O_RDWR);
    const CFileMapping mapping(file);

    CFileMapping::CView shared = mapping.MapView(4096, 4096, PROT_READ | PROT_WRITE);
    EXPECT_EQ(shared.Delta(), 0u);
    EXPECT_EQ(std::string(shared.Address(), 4096), bytes.substr(4096, 4096));
    memcpy(shared.Address() + 10, "WRITTEN", 7);
    shared.Flush();
    bytes.replace(4096 + 10, 7, "WRITTEN");
    EXPECT_EQ(GetFile(path), bytes);

    CFileMapping::CView unaligned = mapping.MapView(5000, 100, PROT_READ);
    EXPECT_EQ(unaligned.Delta(), 5000 % uint32_t(sysconf(_SC_PAGESIZE)));
    EXPECT_EQ(std::string(unaligned.Address(), 100), bytes.substr(5000, 100));
    const char* base = unaligned.Address() - unaligned.Delta();
    unaligned.Release();
    EXPECT_FALSE(IsMapped(base)) << "released view still mapped";

    CFileMapping::CView own = mapping.MapView(0, 13, kMapCopyOnWrite);
    memcpy(own.Address(), "CHANGED", 7);
    EXPECT_EQ(std::string(own.Address(), 7), "CHANGED");
    EXPECT_EQ(GetFile(path), bytes) << "a private view wrote through";
}

TEST(FileMapping, MappingsAndViewsLiveAsLongAsTheirLastCopy) {
    TempTree dir;
    const std::string path = dir / "mapped";
    PutFile(path, "still here");
    CSysFile file;
    file.Open(Ex(path), O_RDONLY);
    auto mapping = std::make_unique<CFileMapping>(file);
    EXPECT_NE(mapping->GetHandle(), file.GetHandle()) << "a duplicate of its own";
    EXPECT_TRUE(fcntl(mapping->GetHandle(), F_GETFD) & FD_CLOEXEC);
    file.Close();

    CFileMapping copy = *mapping;
    const int fd = mapping->GetHandle();
    mapping->Close();
    EXPECT_TRUE(IsOpenDescriptor(fd)) << "closed while a copy remains";
    CFileMapping::CView view = copy.MapView(0, 10, PROT_READ);
    copy.Close();
    EXPECT_FALSE(IsOpenDescriptor(fd));

    const char* address = view.Address();
    {
        CFileMapping::CView assigned;
        assigned = view;
        view.Release();
        EXPECT_EQ(std::string(assigned.Address(), 10), "still here");
    }
    EXPECT_FALSE(IsMapped(address)) << "the last copy of a view didn't unmap it";
}

TEST(FileMapping, GetFileNameFindsThePathBehindTheMapping) {
    TempTree dir;
    PutFile(dir / "named file", "x");
    EXPECT_EQ(Str(CFileMapping(Ex(dir / "named file"), O_RDONLY).GetFileName()),
              dir / "named file");
    PutFile(dir / "empty", "");
    EXPECT_EQ(Str(CFileMapping(Ex(dir / "empty"), O_RDWR).GetFileName()), dir / "empty");
}

TEST(FileMappingFailure, MessagesNameTheCallAndCodesTheKind) {
    TempTree dir;
    const std::string file = dir / "file";
    PutFile(file, "abc");
    const CFileMapping readOnly(Ex(file), O_RDONLY);
    const CFileMapping writeOnly(Ex(file), O_WRONLY);
    const std::string view = "SetupMapView - failed create file view\n";
    struct Case {
        std::function<void()> action;
        int32_t code;
        std::string start;
    } cases[] = {
        {[&] { CFileMapping(Ex(dir / "missing"), O_RDONLY); }, FileCode::MapOpen,
         "CFileMapping::CFileMapping - error open file mapping\n  file path = " + dir / "missing" +
             "\n@ PosixOpenFile - failed open specified file\n"},
        {[&] { CFileMapping{CSysFile()}; }, FileCode::MapCreate,
         "CFileMapping::CFileMapping - failed create file mapping\n"},
        {[&] { readOnly.MapView(0, 0, PROT_READ); }, FileCode::ViewCreate,
         view + "  size        = 0\n"},
        {[&] { readOnly.MapView(0, 3, PROT_READ | PROT_WRITE); }, FileCode::ViewCreate,
         view + "  size        = 0x3\n"},
        {[&] { writeOnly.MapView(0, 3, kMapCopyOnWrite); }, FileCode::ViewCreate, view},
        {[&] { writeOnly.GetFileName(); }, FileCode::ViewCreate, view},
    };
    for (const Case& c : cases) {
        const filetest::Thrown e = Catch<fmppExp>(c.action);
        EXPECT_TRUE(e.message.starts_with(c.start)) << e.message;
        EXPECT_EQ(e.code, c.code) << c.start;
    }
}

}  // namespace
}  // namespace Orlo
