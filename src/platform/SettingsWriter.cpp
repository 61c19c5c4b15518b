#include "platform/SettingsWriter.h"

#include "platform/Log.h"

#include <QSettings>
#include <QStringList>

std::shared_ptr<SettingsWriter> SettingsWriter::shared() {
    static std::mutex lock;
    static std::weak_ptr<SettingsWriter> current;
    const std::lock_guard guard(lock);
    std::shared_ptr<SettingsWriter> writer = current.lock();
    if (!writer) {
        writer = std::make_shared<SettingsWriter>();
        current = writer;
    }
    return writer;
}

SettingsWriter::SettingsWriter() : m_thread([this] { run(); }) {}

SettingsWriter::~SettingsWriter() {
    {
        const std::lock_guard guard(m_lock);
        m_stopping = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void SettingsWriter::post(const QString& path, const QString& key, std::optional<QVariant> value) {
    {
        const std::lock_guard guard(m_lock);
        m_queue.push_back({path, key, std::move(value)});
        ++m_postedCount;
    }
    m_wake.notify_one();
}

void SettingsWriter::flush() {
    std::unique_lock guard(m_lock);
    const std::uint64_t target = m_postedCount;
    m_written.wait(guard, [&] { return m_writtenCount >= target; });
}

void SettingsWriter::run() {
    for (;;) {
        std::deque<Change> batch;
        {
            std::unique_lock guard(m_lock);
            m_wake.wait(guard, [&] { return m_stopping || !m_queue.empty(); });
            if (m_queue.empty()) {
                return; // stopping, and everything is written
            }
            batch.swap(m_queue);
        }
        // Whatever piled up meanwhile costs one write of each file.
        write(batch);
        {
            const std::lock_guard guard(m_lock);
            m_writtenCount += batch.size();
        }
        m_written.notify_all();
    }
}

void SettingsWriter::write(const std::deque<Change>& changes) {
    QStringList paths;
    for (const Change& change : changes) {
        if (!paths.contains(change.path)) {
            paths.append(change.path);
        }
    }
    for (const QString& path : paths) {
        // A settings object of this thread's own: the library lets objects on
        // different threads share one file.
        QSettings file(path, QSettings::IniFormat);
        for (const Change& change : changes) {
            if (change.path != path) {
                continue;
            }
            if (change.value) {
                file.setValue(change.key, *change.value);
            } else {
                file.remove(change.key);
            }
        }
        file.sync();
        if (file.status() != QSettings::NoError) {
            Log::error(Log::app, QStringLiteral("The settings could not be saved to %1").arg(path));
        }
    }
}
