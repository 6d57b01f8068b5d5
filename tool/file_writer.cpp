// The background file writer; see file_writer.h.

#include "file_writer.h"

#include <system_error>
#include <utility>

#include "orlo/dir.h"

namespace Orlo {

FileWriter::~FileWriter() {
    if (!m_thread.joinable()) return;
    {
        std::lock_guard<std::mutex> hold(m_lock);
        m_quit = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void FileWriter::Write() noexcept {
    try {
        CDir::WriteFile(m_path, m_content, false, false);
    } catch (...) {
        m_failure = std::current_exception();
    }
}

void FileWriter::Loop() {
    std::unique_lock<std::mutex> hold(m_lock);
    for (;;) {
        m_changed.wait(hold, [this] { return m_busy || m_quit; });
        if (!m_busy) return;
        hold.unlock();
        Write();
        hold.lock();
        m_busy = false;
        m_changed.notify_all();
    }
}

void FileWriter::Start(const stringEx& path, byteEx& content) {
    if (!m_threadTried) {
        m_threadTried = true;
        try {
            m_thread = std::thread([this] { Loop(); });
        } catch (const std::system_error&) {
        }
    }
    {
        std::lock_guard<std::mutex> hold(m_lock);
        m_path = path;
        m_content.swap(content);
        m_failure = nullptr;
        m_busy = true;
    }
    if (!m_thread.joinable()) {
        Write();
        m_busy = false;
        return;
    }
    m_changed.notify_all();
}

void FileWriter::Wait() {
    std::unique_lock<std::mutex> hold(m_lock);
    m_changed.wait(hold, [this] { return !m_busy; });
    if (m_failure) std::rethrow_exception(std::exchange(m_failure, nullptr));
}

}  // namespace Orlo
