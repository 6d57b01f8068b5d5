// Shared memory objects: names, create-or-attach against an existing area,
// the size rules, the removal of an area that couldn't be sized, and the
// failure of each step.

#include "orlo/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "sync/sync_test_support.h"

namespace Orlo {
namespace {

using synctest::NameGuard;
using synctest::NamePrefix;
using synctest::Text;

wstringEx Wide(const std::string& ascii) {
    wstringEx wide;
    wide.AppendOtherWidth(ascii.c_str());
    return wide;
}

off_t SizeOf(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 ? status.st_size : -1;
}

bool AreaExists(const std::string& name) {
    const int descriptor = shm_open(("/" + name).c_str(), O_RDONLY, 0);
    if (descriptor < 0) return false;
    close(descriptor);
    return true;
}

TEST(SharedMemory, NamesWithAndWithoutSlashAreOneArea) {
    NameGuard name("slash");
    CSharedMemoryObject plain(name.name.c_str(), O_RDWR, 4096);
    CSharedMemoryObject slashed(("/" + name.name).c_str(), O_RDWR, 4096);
    CSharedMemoryObject wide(open_existing, Wide(name.name), O_RDONLY, 4096);
    EXPECT_TRUE(plain.CreatedByMe());
    EXPECT_FALSE(slashed.CreatedByMe());
    EXPECT_EQ(plain.Name(), ("/" + name.name).c_str());
    EXPECT_EQ(slashed.Name(), plain.Name());

    static_cast<char*>(plain.Address())[4095] = 'p';
    static_cast<char*>(slashed.Address())[0] = 's';
    EXPECT_EQ(static_cast<const char*>(wide.Address())[4095], 'p');
    EXPECT_EQ(static_cast<const char*>(wide.Address())[0], 's');
}

TEST(SharedMemory, OnlyACreatorSetsTheSize) {
    NameGuard name("size");
    bool created = false;
    const int first = CreateSharedMemoryObject(name.name.c_str(), O_RDWR, 4096, created);
    EXPECT_TRUE(created);
    EXPECT_EQ(SizeOf(first), 4096);

    const int second = CreateSharedMemoryObject(name.name.c_str(), O_RDWR, 8192, created);
    EXPECT_FALSE(created) << "a second create of one name";
    EXPECT_EQ(SizeOf(second), 4096) << "an attach resized the area";
    const int third = CreateSharedMemoryObject(Wide(name.name), O_RDWR, 0, created);
    EXPECT_FALSE(created);
    EXPECT_EQ(SizeOf(third), 4096);

    void* one = SetupMapView(first, 4096, nullptr, O_RDWR);
    void* other = SetupMapView(third, 4096, nullptr, O_RDONLY);
    static_cast<char*>(one)[7] = 'x';
    EXPECT_EQ(static_cast<const char*>(other)[7], 'x');
    munmap(one, 4096);
    munmap(other, 4096);

    CloseAndRemoveSharedMemoryObject(third, Wide(name.name), false);
    CloseAndRemoveSharedMemoryObject(second, name.name.c_str(), false);
    EXPECT_TRUE(AreaExists(name.name)) << "a close without remove removed the area";
    CloseAndRemoveSharedMemoryObject(first, name.name.c_str(), true);
    EXPECT_FALSE(AreaExists(name.name));
}

TEST(SharedMemory, EachStepReportsItsFailure) {
    const std::string missing = NamePrefix() + "missing";
    NameGuard readOnly("read-only");
    bool created = false;
    const struct {
        const char* what;
        std::function<void()> fail;
        int32_t code;
        std::string expected;
    } cases[] = {
        {"open of a name nobody made", [&] { OpenSharedMemoryObject(missing.c_str(), O_RDWR); },
         ShmemCode::Open,
         "OpenSharedMemoryObject - failed create shared memory object\n  smo name    = /" +
             missing +
             "\n  flag        = 0x2\n  access mode = 0666\n  error code  = 2\n"
             "  error desc  = the shared memory object does not exist"},
        {"a new area opened read-only can't be sized, and is removed",
         [&] { CreateSharedMemoryObject(readOnly.name.c_str(), O_RDONLY, 4096, created); },
         ShmemCode::SetSize,
         "CreateSharedMemoryObject - failed set the size of shared memory object\n"
         "  smo name    = /" +
             readOnly.name +
             "\n  flag        = 0x40\n  access mode = 0666\n  smo size    = 0x1000\n"
             "  error code  = 22\n  error desc  = invalid size or there is no write permission"},
        {"a view of no descriptor", [] { SetupMapView(-1, 4096, nullptr, O_RDWR); }, ShmemCode::Map,
         "SetupMapView - failed create memory view\n  size        = 0x1000\n"
         "  address arg = (nil)\n  protection  = 0x3\n  flags       = 0x1\n"
         "  error code  = 9\n  error desc  = invalid descriptor"},
        {"a removal of a name nobody made",
         [&] {
             CloseAndRemoveSharedMemoryObject(open("/dev/null", O_RDONLY), missing.c_str(), true);
         },
         ShmemCode::Release,
         "CloseAndRemoveSharedMemoryObject - failed remove shared memory object\n"
         "  smo name   = /" +
             missing +
             "\n  error code = 2\n  error desc = the shared memory object does not exist"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            c.fail();
            ADD_FAILURE() << "no exception";
        } catch (const shmemExp& e) {
            EXPECT_EQ(e.code, c.code);
            EXPECT_EQ(Text(e), c.expected);
        }
    }
    EXPECT_FALSE(AreaExists(readOnly.name)) << "an area that couldn't be sized was left";
}

}  // namespace
}  // namespace Orlo
