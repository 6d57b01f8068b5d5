// Writes changed files back on a thread of its own, one at a time, so that
// the next file is read and replaced while the last one is written.

#ifndef MENDO_FILE_WRITER_H
#define MENDO_FILE_WRITER_H

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "orlo/buffer.h"
#include "orlo/stringEx.h"

namespace Orlo {

// One write in flight at most. The caller waits for it before it reports
// anything of a later file, so reports keep the files' order. Where no
// thread can be had, a write runs at once in the caller's thread.
class FileWriter {
  public:
    FileWriter() = default;
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    // Starts writing `content` to `path` (the guarded whole-file write).
    // The writer takes the content's block by swapping it with the one it
    // held, which the caller gets back for its next input. No write may be
    // in flight.
    void Start(const stringEx& path, byteEx& content);

    // Waits for the write started last, if any, and rethrows its failure.
    void Wait();

  private:
    void Loop();
    void Write() noexcept;

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::thread m_thread;
    bool m_threadTried = false;
    bool m_busy = false;
    bool m_quit = false;
    stringEx m_path;
    byteEx m_content;
    std::exception_ptr m_failure;
};

}  // namespace Orlo

#endif  // MENDO_FILE_WRITER_H
