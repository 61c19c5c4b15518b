#include "platform/Log.h"

#include <QByteArray>
#include <QHash>

#include <cstdio>
#include <mutex>
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

namespace Log {
namespace {

constexpr char identifier[] = "SYSLOG_IDENTIFIER=net.velnor.rz";

// What stays the same for every message of one category, encoded once.
struct Logger {
    QByteArray categoryField;
};

std::mutex loggersLock;
QHash<QString, Logger>& loggers() {
    static QHash<QString, Logger> map;
    return map;
}

QByteArray categoryField(QStringView category) {
    std::lock_guard guard(loggersLock);
    auto& map = loggers();
    auto key = category.toString();
    auto found = map.constFind(key);
    if (found != map.constEnd()) {
        return found->categoryField;
    }
    Logger logger{"RZ_CATEGORY=" + key.toUtf8()};
    map.insert(key, logger);
    return logger.categoryField;
}

void toJournal(QStringView category, QStringView message, Level level) {
    const QByteArray category_ = categoryField(category);
    const QByteArray text = "MESSAGE=" + message.toUtf8();
    const QByteArray priority =
        "PRIORITY=" + QByteArray::number(level == Level::error ? LOG_ERR : LOG_INFO);
    iovec fields[] = {
        {const_cast<char*>(text.constData()), size_t(text.size())},
        {const_cast<char*>(priority.constData()), size_t(priority.size())},
        {const_cast<char*>(identifier), sizeof identifier - 1},
        {const_cast<char*>(category_.constData()), size_t(category_.size())},
    };
    // Without a journal (a container, a test machine) this fails; stderr still has the line.
    sd_journal_sendv(fields, int(std::size(fields)));
}

} // namespace

QString line(QTime timeOfDay, QStringView category, QStringView message) {
    QString text = timeOfDay.toString(Qt::ISODateWithMs);
    text.reserve(text.size() + category.size() + message.size() + 4);
    text.append(u" [").append(category).append(u"] ").append(message).append(u'\n');
    return text;
}

void write(QStringView category, QStringView message, Level level) {
    toJournal(category, message, level);
    const QByteArray bytes = line(QTime::currentTime(), category, message).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace Log
