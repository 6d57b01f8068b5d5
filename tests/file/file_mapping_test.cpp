// CFileMapping and its views on real files: reading and writing through a
// view, private copies, unaligned offsets, ownership of views and
// descriptors, the file name lookup, and the failure texts byte for byte.

#include "orlo/file_mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include "file/sysfile_test_support.h"
#include "orlo/exceptions.h"

namespace Orlo {
namespace {

using filetest::Catch;
using filetest::IsOpenDescriptor;
using filetest::Lines;
using filetest::ReadRaw;
using filetest::TempDir;
using filetest::Text;
using filetest::WriteRaw;

stringEx S(const std::string& text) {
    return stringEx(text.c_str(), uint32_t(text.size()));
}

std::string Pointer(const void* address) {
    char text[32];
    snprintf(text, sizeof text, "%p", address);
    return text;
}

// Whether the page at `address` is mapped in this process.
bool IsMapped(const void* address) {
    const uintptr_t page = uintptr_t(address) & ~uintptr_t(sysconf(_SC_PAGESIZE) - 1);
    return msync(reinterpret_cast<void*>(page), 1, MS_ASYNC) == 0;
}

// 3 pages of bytes whose value tells their offset.
std::string Pattern() {
    std::string bytes(3 * 4096, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = char('a' + (i * 7 + i / 4096) % 26);
    return bytes;
}

TEST(FileMapping, ASharedViewReadsAndWritesTheFile) {
    TempDir dir;
    const std::string path = dir / "mapped";
    const std::string bytes = Pattern();
    WriteRaw(path, bytes);
    CSysFile file;
    file.Open(S(path), O_RDWR);
    const CFileMapping mapping(file);

    CFileMapping::CView view = mapping.MapView(4096, 4096, PROT_READ | PROT_WRITE);
    EXPECT_EQ(view.Delta(), 0u);
    EXPECT_EQ(view.Size(), 4096u);
    EXPECT_EQ(std::string(view.Address(), 4096), bytes.substr(4096, 4096));
    memcpy(view.Address() + 10, "WRITTEN", 7);
    view.Flush();
    EXPECT_EQ(ReadRaw(path).substr(4096 + 10, 7), "WRITTEN");
}

TEST(FileMapping, ACopyOnWriteViewKeepsItsChangesToItself) {
    TempDir dir;
    const std::string path = dir / "mapped";
    WriteRaw(path, "original text");
    const CFileMapping mapping(S(path), O_RDONLY);
    CFileMapping::CView view = mapping.MapView(0, 13, kMapCopyOnWrite);
    memcpy(view.Address(), "CHANGED", 7);
    EXPECT_EQ(std::string(view.Address(), 13), "CHANGEDl text");
    EXPECT_EQ(ReadRaw(path), "original text");
}

TEST(FileMapping, AnUnalignedViewPointsAtTheRequestedByte) {
    TempDir dir;
    const std::string path = dir / "mapped";
    const std::string bytes = Pattern();
    WriteRaw(path, bytes);
    const CFileMapping mapping(S(path), O_RDONLY);
    const uint32_t page = uint32_t(sysconf(_SC_PAGESIZE));

    CFileMapping::CView view = mapping.MapView(5000, 100, PROT_READ);
    EXPECT_EQ(view.Delta(), 5000 % page);
    EXPECT_EQ(std::string(view.Address(), 100), bytes.substr(5000, 100));
    view.Flush();  // covers delta + size from the base
    const char* base = view.Address() - view.Delta();
    view.Release();
    EXPECT_EQ(view.Address(), nullptr);
    EXPECT_FALSE(IsMapped(base)) << "released view still mapped";
}

TEST(FileMapping, TheLastCopyOfAViewUnmapsIt) {
    TempDir dir;
    const std::string path = dir / "mapped";
    WriteRaw(path, "shared view");
    const CFileMapping mapping(S(path), O_RDONLY);
    CFileMapping::CView first = mapping.MapView(0, 11, PROT_READ);
    const char* address = first.Address();
    {
        CFileMapping::CView copy = first;
        CFileMapping::CView assigned;
        assigned = copy;
        first.Release();
        copy.Release();
        EXPECT_TRUE(IsMapped(address));
        EXPECT_EQ(std::string(assigned.Address(), 11), "shared view");
    }
    EXPECT_FALSE(IsMapped(address));
}

TEST(FileMapping, MappingAndViewsOutliveWhatTheyCameFrom) {
    TempDir dir;
    const std::string path = dir / "mapped";
    WriteRaw(path, "still here");
    CSysFile file;
    file.Open(S(path), O_RDONLY);
    auto mapping = std::make_unique<CFileMapping>(file);
    EXPECT_NE(mapping->GetHandle(), file.GetHandle()) << "a duplicate of its own";
    EXPECT_TRUE(fcntl(mapping->GetHandle(), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(mapping->GetPath(), file.GetPath());
    file.Close();

    CFileMapping copy = *mapping;
    const int fd = mapping->GetHandle();
    mapping->Close();
    EXPECT_TRUE(IsOpenDescriptor(fd)) << "closed while a copy remains";
    CFileMapping::CView view = copy.MapView(0, 10, PROT_READ);
    copy.Close();
    EXPECT_FALSE(IsOpenDescriptor(fd));
    EXPECT_EQ(std::string(view.Address(), 10), "still here");
}

TEST(FileMapping, GetFileNameFindsThePathBehindTheMapping) {
    TempDir dir;
    const std::string path = dir / "named file";
    WriteRaw(path, "x");
    EXPECT_EQ(Text(CFileMapping(S(path), O_RDONLY).GetFileName()), path);
    WriteRaw(dir / "empty", "");
    EXPECT_EQ(Text(CFileMapping(S(dir / "empty"), O_RDWR).GetFileName()), dir / "empty");
}

struct FailureCase {
    const char* name;
    std::function<void()> action;
    int32_t code;
    std::string message;
};

TEST(FileMappingFailure, TextsAndCodesAreExact) {
    TempDir dir;
    const std::string file = dir / "file";
    const std::string missing = dir / "missing";
    WriteRaw(file, "abc");
    const CFileMapping readOnly(S(file), O_RDONLY);
    const CFileMapping writeOnly(S(file), O_WRONLY);

    const std::string mapHead = "SetupMapView - failed create file view";
    const std::string noHint = "  address arg = " + Pointer(nullptr);
    const std::string denied = "  error desc  = access denied";
    const FailureCase cases[] = {
        {"missing file", [&] { CFileMapping(S(missing), O_RDONLY); }, FileCode::MapOpen,
         Lines({"CFileMapping::CFileMapping - error open file mapping", "  file path = " + missing,
                "@ PosixOpenFile - failed open specified file", "  file path  = " + missing,
                "  error code = 2", "  error desc = file dose not exists or can't be created"})},
        {"closed file", [&] { CFileMapping{CSysFile()}; }, FileCode::MapCreate,
         Lines({"CFileMapping::CFileMapping - failed create file mapping",
                "  file path  = ", "  error code = 9", "  error desc = invalid file descriptor"})},
        {"empty view", [&] { readOnly.MapView(0, 0, PROT_READ); }, FileCode::ViewCreate,
         Lines({mapHead, "  size        = 0", noHint, "  protection  = 0x1", "  flags       = 0x1",
                "  error code  = 22", "  error desc  = invalid size, address, or flags argument"})},
        {"writable view of a read-only file",
         [&] { readOnly.MapView(0, 3, PROT_READ | PROT_WRITE); }, FileCode::ViewCreate,
         Lines({mapHead, "  size        = 0x3", noHint, "  protection  = 0x3",
                "  flags       = 0x1", "  error code  = 13", denied})},
        {"private view of a write-only file", [&] { writeOnly.MapView(0, 3, kMapCopyOnWrite); },
         FileCode::ViewCreate,
         Lines({mapHead, "  size        = 0x3", noHint, "  protection  = 0x3",
                "  flags       = 0x2", "  error code  = 13", denied})},
        {"name of a write-only mapping", [&] { writeOnly.GetFileName(); }, FileCode::ViewCreate,
         Lines({mapHead, "  size        = 0x1", noHint, "  protection  = 0x1",
                "  flags       = 0x1", "  error code  = 13", denied})},
    };
    for (const FailureCase& c : cases) {
        const fmppExp e = Catch<fmppExp>(c.action);
        EXPECT_EQ(Text(e.message), c.message) << c.name;
        EXPECT_EQ(e.code, c.code) << c.name;
    }
}

// The view's range is unmapped behind its back, so that msync finds nothing
// there. That leaves the view pointing at addresses the process may hand
// out again, so the whole test runs in a child that ends with _exit: no
// destructor ever unmaps somebody else's memory.
TEST(FileMappingFailure, FlushOfAViewThatIsNoLongerMapped) {
    TempDir dir;
    WriteRaw(dir / "file", std::string(100, 'x'));
    int channel[2];
    ASSERT_EQ(pipe(channel), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(channel[0]);
        std::string report;
        {
            const CFileMapping mapping(S(dir / "file"), O_RDONLY);
            CFileMapping::CView view = mapping.MapView(0, 100, PROT_READ);
            const std::string address = Pointer(view.Address());
            if (munmap(view.Address(), 100) == 0) {
                const fmppExp e = Catch<fmppExp>([&] { view.Flush(); });
                report = std::to_string(e.code) + "|" + address + "|" + Text(e.message);
            }
            (void)!write(channel[1], report.data(), report.size());
            _exit(0);
        }
    }
    close(channel[1]);
    std::string report;
    char buffer[4096];
    for (ssize_t n; (n = read(channel[0], buffer, sizeof buffer)) > 0;)
        report.append(buffer, n);
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);

    const size_t bar1 = report.find('|'), bar2 = report.find('|', bar1 + 1);
    ASSERT_NE(bar2, std::string::npos) << report;
    EXPECT_EQ(report.substr(0, bar1), std::to_string(FileCode::ViewFlush));
    const std::string address = report.substr(bar1 + 1, bar2 - bar1 - 1);
    EXPECT_EQ(report.substr(bar2 + 1),
              Lines({"CFileMapping::CView::Flush - failed flush view to file",
                     "  view addr      = " + address, "  view size      = 0x64",
                     "  sys error code = 12", "  sys error desc = address space out-of-range"}));
}

}  // namespace
}  // namespace Orlo
