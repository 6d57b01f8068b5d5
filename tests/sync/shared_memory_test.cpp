// Shared memory objects: names, create-or-attach, the size rules, and the
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
    const int second = CreateSharedMemoryObject(Wide(name.name), O_RDWR, 8192, created);
    EXPECT_FALSE(created) << "a second create of one name";
    EXPECT_EQ(SizeOf(second), 4096) << "an attach resized the area";

    CloseAndRemoveSharedMemoryObject(second, Wide(name.name), false);
    EXPECT_TRUE(AreaExists(name.name)) << "a close without remove removed the area";
    CloseAndRemoveSharedMemoryObject(first, name.name.c_str(), true);
    EXPECT_FALSE(AreaExists(name.name));
}

// One exact message shows the layout; the other steps check their codes.
TEST(SharedMemory, EachStepReportsItsFailure) {
    const std::string missing = NamePrefix() + "missing";
    NameGuard readOnly("read-only");
    bool created = false;
    try {
        OpenSharedMemoryObject(missing.c_str(), O_RDWR);
        ADD_FAILURE() << "open of a name nobody made";
    } catch (const shmemExp& e) {
        EXPECT_EQ(e.code, ShmemCode::Open);
        EXPECT_EQ(Text(e),
                  "OpenSharedMemoryObject - failed create shared memory object\n  smo name    = /" +
                      missing +
                      "\n  flag        = 0x2\n  access mode = 0666\n  error code  = 2\n"
                      "  error desc  = the shared memory object does not exist");
    }
    const struct {
        const char* what;
        std::function<void()> fail;
        int32_t code;
    } cases[] = {
        {"a new area opened read-only can't be sized, and is removed",
         [&] { CreateSharedMemoryObject(readOnly.name.c_str(), O_RDONLY, 4096, created); },
         ShmemCode::SetSize},
        {"a view of no descriptor", [] { SetupMapView(-1, 4096, nullptr, O_RDWR); },
         ShmemCode::Map},
        {"a removal of a name nobody made",
         [&] {
             CloseAndRemoveSharedMemoryObject(open("/dev/null", O_RDONLY), missing.c_str(), true);
         },
         ShmemCode::Release},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(synctest::ThrownCode<shmemExp>(c.fail), c.code);
    }
    EXPECT_FALSE(AreaExists(readOnly.name)) << "an area that couldn't be sized was left";
}

}  // namespace
}  // namespace Orlo
