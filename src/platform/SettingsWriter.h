#pragma once

#include <QString>
#include <QVariant>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

// Puts settings changes into their INI files on a thread of its own, so that
// the main thread never waits for a file to be written and synced (a large
// value such as the colleagues' map costs tens of milliseconds there).
// Changes reach each file in the order they were posted. One writer serves the
// whole process while any store needs it.
class SettingsWriter {
public:
    // The process's writer, started when the first store asks for it; it ends
    // (after writing everything posted) with the last holder.
    static std::shared_ptr<SettingsWriter> shared();

    SettingsWriter();
    ~SettingsWriter();
    SettingsWriter(const SettingsWriter&) = delete;
    SettingsWriter& operator=(const SettingsWriter&) = delete;

    // Sets `key` in the file at `path`, or removes it when `value` is absent.
    void post(const QString& path, const QString& key, std::optional<QVariant> value);
    // Returns once everything posted before the call is on disk.
    void flush();

private:
    struct Change {
        QString path;
        QString key;
        std::optional<QVariant> value;
    };

    void run();
    static void write(const std::deque<Change>& changes);

    std::mutex m_lock;
    std::condition_variable m_wake;
    std::condition_variable m_written;
    std::deque<Change> m_queue;
    std::uint64_t m_postedCount = 0;
    std::uint64_t m_writtenCount = 0;
    bool m_stopping = false;
    std::thread m_thread;
};
