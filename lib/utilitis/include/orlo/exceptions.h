// The exception family: every failure of the library is an object of the
// byExp tree, thrown by value and caught by reference.
//
// Each class stands for a module (dirExp for directories, semExp for
// semaphores, ...) and the tree groups modules, so that a caller catches at
// the level it can handle: ioExp for any input or output, syncExp for any
// synchronisation object, byExp for anything from the library. All classes
// have the same layout: a text and a code. No class adds a field or a virtual
// function; there is no what(): readers take `message` straight from the
// field. The code tells which operation failed and is numbered per family,
// not per class: fileExp, sysfileExp, pipeExp, cfileExp and fmppExp share
// FileCode, and mutexExp, eventExp and semExp share SyncCode, so one number
// means one operation across a family.
//
// Copying an exception shares its message buffer (one atomic increment), so
// throwing costs no copy of the text. Messages are built with ExpMessage
// (orlo/exp_message.h), which keeps the layout identical across the library.

#ifndef ORLO_EXCEPTIONS_H
#define ORLO_EXCEPTIONS_H

#include <cstdint>
#include <exception>

#include "orlo/stringEx.h"

namespace Orlo {

// Root of the tree. Never thrown directly.
class byExp {
  public:
    // Shares `message` (no copy of the text) and keeps `code`, which is one
    // of the enumerators of the thrower's family below.
    byExp(const stringEx& message, int32_t code);
    virtual ~byExp();

    // Whole text: a head line "Class::Method - what failed", then detail
    // lines, then possibly "@ " and the text of a wrapped exception. Lines
    // are separated by single line feeds.
    stringEx message;
    // Kind of failure within the family; set once, never changed.
    int32_t code;
};

// Everything in the library. Not thrown directly.
class utilExp : public byExp {
  public:
    using byExp::byExp;
};

// ---- input and output -------------------------------------------------------

// Input and output. Not thrown directly.
class ioExp : public utilExp {
  public:
    using utilExp::utilExp;
};
// Files in general (reads of files under /proc and similar). FileCode.
class fileExp : public ioExp {
  public:
    using ioExp::ioExp;
};
// CSysFile. FileCode.
class sysfileExp : public fileExp {
  public:
    using fileExp::fileExp;
};
// CPipe. FileCode.
class pipeExp : public sysfileExp {
  public:
    using sysfileExp::sysfileExp;
};
// CCFile, the stdio wrapper. FileCode.
class cfileExp : public fileExp {
  public:
    using fileExp::fileExp;
};
// CFileMapping. FileCode.
class fmppExp : public fileExp {
  public:
    using fileExp::fileExp;
};
// CDir: paths, directories, whole-file reads and writes. DirCode.
class dirExp : public ioExp {
  public:
    using ioExp::ioExp;
};
// Shared memory objects. ShmemCode.
class shmemExp : public ioExp {
  public:
    using ioExp::ioExp;
};
// ISXF reading and writing. IsxfCode.
class isxfExp : public ioExp {
  public:
    using ioExp::ioExp;
};

// ---- system services --------------------------------------------------------

// System services. Not thrown directly.
class syssrvExp : public utilExp {
  public:
    using utilExp::utilExp;
};
// TTextConv. TconvCode.
class tconvExp : public syssrvExp {
  public:
    using syssrvExp::syssrvExp;
};
// The GNU libiconv back end. ConvLibCode.
class libiconvExp : public tconvExp {
  public:
    using tconvExp::tconvExp;
};
// The ICU back end. ConvLibCode.
class libicuExp : public tconvExp {
  public:
    using tconvExp::tconvExp;
};
// CDllLoader. DlllCode.
class dlllExp : public syssrvExp {
  public:
    using syssrvExp::syssrvExp;
};
// CTime. TimeCode.
class timeExp : public syssrvExp {
  public:
    using syssrvExp::syssrvExp;
};
// CProcess. ProcCode.
class procExp : public syssrvExp {
  public:
    using syssrvExp::syssrvExp;
};
// CFakeRegistry. RegCode.
class regExp : public syssrvExp {
  public:
    using syssrvExp::syssrvExp;
};
// TThread. ThreadCode.
class threadExp : public syssrvExp {
  public:
    using syssrvExp::syssrvExp;
};
// Thread-local slots. TlsCode.
class tlsExp : public syssrvExp {
  public:
    using syssrvExp::syssrvExp;
};

// ---- synchronisation --------------------------------------------------------

// Synchronisation objects. Not thrown directly.
class syncExp : public utilExp {
  public:
    using utilExp::utilExp;
};
// CMutex, CProcMutex. SyncCode.
class mutexExp : public syncExp {
  public:
    using syncExp::syncExp;
};
// CEvent, CProcEvent. SyncCode.
class eventExp : public syncExp {
  public:
    using syncExp::syncExp;
};
// Semaphores. SyncCode.
class semExp : public syncExp {
  public:
    using syncExp::syncExp;
};

// ---- auxiliary services -----------------------------------------------------

// Auxiliary services. Not thrown directly.
class auxExp : public utilExp {
  public:
    using utilExp::utilExp;
};
// CLog. LogCode.
class logExp : public auxExp {
  public:
    using auxExp::auxExp;
};
// CSV and JSON rows. CsvCode.
class csvExp : public auxExp {
  public:
    using auxExp::auxExp;
};

// ---- codes --------------------------------------------------------------------
// Each family is a namespace holding a plain enumeration, so that an
// enumerator converts to the int32_t `code` on both sides: a thrower passes
// FileCode::Open, a catcher compares e.code == DlllCode::Load. Numbers that
// are missing are not used; they are kept stable because catchers and logs
// read them.

// fileExp, sysfileExp, pipeExp, cfileExp, fmppExp.
namespace FileCode {
enum Value : int32_t {
    PipeCreate = 3,  // create a pipe pair, or set its options
    Open = 4,        // open, including share mode and access advice
    Close = 6,
    Read = 7,           // also a character read
    Write = 9,          // also a character write
    NotSupported = 11,  // not supported on this platform (pipe peek)
    Unget = 12,         // unget a character
    Seek = 13,
    GetPosition = 14,
    Flush = 15,
    SetBuffer = 16,  // set the buffer option
    GetSize = 17,
    GetTime = 18,
    SetTime = 19,
    Lock = 20,    // lock a range
    Unlock = 22,  // unlock a range
    Resize = 23,
    MapOpen = 25,    // open a file mapping
    MapCreate = 26,  // create a file mapping
    ViewCreate = 27,
    ViewRelease = 28,
    MapClose = 29,  // close a mapping's descriptor
    ViewFlush = 30,
    MapFileName = 31,  // get the file name of a mapping
    Query = 35,        // poll, ioctl, read of a file under /proc
    Duplicate = 36,    // duplicate a descriptor
    Disclaim = 37,     // ownership check failed when disclaiming a descriptor
};
}  // namespace FileCode

// dirExp.
namespace DirCode {
enum Value : int32_t {
    InvalidObject = 1,    // invalid object, or the base directory has gone
    InvalidArgument = 2,  // invalid or empty argument
    OpenDir = 3,
    GetAttributes = 4,
    SetAttributes = 5,
    TempName = 6,  // generate a temporary name
    FindInPath = 7,
    MakeDir = 8,
    RemoveDir = 9,
    DuplicateDir = 10,
    TransferDir = 11,
    GetWorkDir = 12,
    SetWorkDir = 13,
    RemoveFile = 14,
    DuplicateFile = 15,
    TransferFile = 16,
    ReleaseCookie = 18,  // release an enumeration cookie
    EnumFiles = 19,
    EnumSubDirs = 20,
    PathStatus = 21,  // path status, storage topology or space information
    MakeSymbolicLink = 23,
    MakeHardLink = 24,
};
}  // namespace DirCode

// mutexExp, eventExp, semExp.
namespace SyncCode {
enum Value : int32_t {
    Create = 1,     // create or open, also the shared memory of a named object
    OpenNamed = 2,  // open a named semaphore
    Close = 3,
    Wait = 4,  // wait or lock, also a timed wait that fails other than by time-out
    Unlock = 5,
    Raise = 7,  // raise an event
};
}  // namespace SyncCode

// shmemExp.
namespace ShmemCode {
enum Value : int32_t {
    SetSize = 1,  // set the size of the object
    Open = 2,     // create or open
    Map = 3,      // map a view
    Release = 4,  // unmap, close or remove
};
}  // namespace ShmemCode

// threadExp.
namespace ThreadCode {
enum Value : int32_t {
    Create = 1,
    AlreadyCreated = 2,
    InvalidState = 3,  // Resume, Suspend, TryStop, SetPriority in a wrong state
    InvalidObject = 4,
    Kill = 8,
    PriorityRange = 10,  // get the range of priorities
    GetSchedParam = 12,
    SetSchedParam = 13,
    SetPriority = 15,  // set, failed getting the range of priorities
    SetAffinity = 18,
};
}  // namespace ThreadCode

// tlsExp.
namespace TlsCode {
enum Value : int32_t {
    Create = 1,
    SetValue = 3,  // set a slot's value
    Release = 4,
};
}  // namespace TlsCode

// procExp.
namespace ProcCode {
enum Value : int32_t {
    InvalidArgument = 1,  // invalid object, resource or other argument
    SwitchOrExec = 2,     // switch user, or execute a new image
    Open = 3,             // open a process by id
    Close = 4,
    GetSchedParam = 9,
    SetSchedParam = 10,
    ExitCodeUnknown = 15,
    ImagePath = 17,  // get an image path
    GetMemoryLimits = 18,
    GetMemoryUsage = 19,
    SetMemoryLimits = 20,
    SystemMemory = 21,  // get system memory status
    EnumProcesses = 23,
    EnumModules = 24,
    UserName = 25,
    ProcessTimes = 26,
    SystemTimes = 27,
    GetFileLimits = 28,  // limits on open files
    SetFileLimits = 29,
    Wait = 30,  // wait for a process
    SetPriority = 31,
    GetAffinity = 32,  // CPU affinity
    SetAffinity = 33,
    Signal = 34,  // raise a signal or kill
};
}  // namespace ProcCode

// regExp.
namespace RegCode {
enum Value : int32_t {
    IndexOutOfRange = 2,
    InvalidData = 3,     // invalid tag or type in stored data
    Parse = 4,           // parse or open
    Save = 5,            // compile or save
    SubkeyNotEmpty = 8,  // remove a subkey that is not empty
    TypeMismatch = 11,   // value of another type than requested
    NoSuchSubkey = 13,   // subkey information of a subkey that does not exist
    Export = 17,
    Import = 18,
    NotFound = 19,  // value or subkey not found
    CircularReference = 21,
};
}  // namespace RegCode

// isxfExp.
namespace IsxfCode {
enum Value : int32_t {
    WrongType = 1,    // wrong data type, or void where a value is required
    Overflow = 2,     // buffer overflow
    UnknownType = 3,  // unknown data type
};
}  // namespace IsxfCode

// timeExp.
namespace TimeCode {
enum Value : int32_t {
    OutOfRange = 2,  // out of range when converting
    InvalidMonth = 3,
    InvalidDay = 4,  // invalid week day or day of year
    SetSystemTime = 8,
};
}  // namespace TimeCode

// dlllExp. Catchers tell Load (the library isn't there) from the others.
namespace DlllCode {
enum Value : int32_t {
    Load = 1,     // load a library
    Release = 2,  // release it
    Locate = 3,   // locate a procedure
};
}  // namespace DlllCode

// tconvExp.
namespace TconvCode {
enum Value : int32_t {
    NoCodePage = 1,  // no code page for an encoding
    UnknownEncoding = 2,
};
}  // namespace TconvCode

// libiconvExp, libicuExp. The numbers follow on from TconvCode.
namespace ConvLibCode {
enum Value : int32_t {
    Init = 3,  // initialise a conversion or locate the library's functions
    Convert = 4,
    Release = 5,  // release a conversion
};
}  // namespace ConvLibCode

// logExp.
namespace LogCode {
enum Value : int32_t {
    NothingToPop = 1,
    InvalidLogger = 5,  // invalid logger handle
};
}  // namespace LogCode

// csvExp.
namespace CsvCode {
enum Value : int32_t {
    Parse = 1,  // parse error
    NothingToDo = 2,
    UnknownStatus = 4,  // unknown parser status
    RowQuota = 5,       // out of row length quota
};
}  // namespace CsvCode

// ---- throwing destructors -------------------------------------------------------
// A destructor of this library that fails reports it like any other
// operation, except while an exception is already propagating: throwing then
// would end the process, so the second failure is dropped and the first one
// goes on. Such destructors are declared noexcept(false).

// True while an exception is propagating through the caller, i.e. when a
// destructor must not throw.
inline bool IsUnwinding() noexcept {
    return std::uncaught_exceptions() > 0;
}

// Runs `work` (the failing part of a destructor) and lets its exception out
// in normal flow; during unwinding the exception is swallowed silently.
// Use from a destructor declared noexcept(false):
//
//   CEvent::~CEvent() noexcept(false) {
//       ThrowUnlessUnwinding([&] { _Destroy(); });
//   }
template <class Work>
void ThrowUnlessUnwinding(Work&& work) {
    try {
        work();
    } catch (...) {
        // The caught exception no longer counts; what is left is the one
        // this destructor is being run for, if any.
        if (!IsUnwinding()) throw;
    }
}

}  // namespace Orlo

#endif  // ORLO_EXCEPTIONS_H
