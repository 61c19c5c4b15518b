#include "history/RecentsModel.h"

#include "history/RecentRow.h"

#include <QSet>

RecentsModel::RecentsModel(CallHistory& history, Recents& recents, SettingsStore& settings,
                           Clock& clock, QObject* parent)
    : QAbstractListModel(parent), m_history(history), m_recents(recents), m_settings(settings),
      m_clock(clock) {
    const QString key = QString::fromLatin1(lastSeenKey);
    const auto stored = m_settings.text(key);
    m_lastSeen = stored ? QDateTime::fromString(*stored, Qt::ISODate) : QDateTime();
    if (!m_lastSeen.isValid()) {
        // The first run counts from now, not the whole history as missed.
        m_lastSeen = m_clock.now();
        m_settings.setText(key, m_lastSeen.toUTC().toString(Qt::ISODate));
    }
    connect(&history, &CallHistory::rowsChanged, this, &RecentsModel::rebuild);
    connect(&recents, &Recents::entriesChanged, this, &RecentsModel::rebuild);
    for (auto signal : {&CallHistory::loadingChanged, &CallHistory::lastErrorChanged,
                        &CallHistory::hasLoadedChanged}) {
        connect(&history, signal, this, &RecentsModel::viewChanged);
    }
    rebuild();
}

int RecentsModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_lines.size());
}

QVariant RecentsModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() < 0 || index.row() >= m_lines.size()) {
        return {};
    }
    const Line& line = m_lines[index.row()];
    switch (role) {
    case IdRole:
        return line.item.id;
    case Qt::DisplayRole:
    case TitleRole:
        return line.title;
    case SubtitleRole:
        return line.subtitle;
    case MissedRole:
        return line.missed;
    case IncomingRole:
        return line.item.incoming;
    case VoicemailRole:
        return line.item.voicemail;
    case DateRole:
        return line.item.date;
    case RemoteRole:
        return line.item.remote;
    case InProgressRole:
        return line.item.inProgress;
    default:
        return {};
    }
}

QHash<int, QByteArray> RecentsModel::roleNames() const {
    return {{IdRole, "callId"},     {TitleRole, "title"},       {SubtitleRole, "subtitle"},
            {MissedRole, "missed"}, {IncomingRole, "incoming"}, {VoicemailRole, "voicemail"},
            {DateRole, "date"},     {RemoteRole, "remote"},     {InProgressRole, "inProgress"}};
}

QString RecentsModel::viewOf(bool listEmpty, bool hasLoaded, bool hasError, bool loading) {
    if (!listEmpty) {
        return QStringLiteral("list");
    }
    if (hasLoaded) {
        return QStringLiteral("empty");
    }
    // A retry under way shows the skeleton, not the last error.
    return hasError && !loading ? QStringLiteral("error") : QStringLiteral("skeleton");
}

QString RecentsModel::view() const {
    return viewOf(m_lines.isEmpty(), m_history.hasLoaded(), m_history.hasLastError(),
                  m_history.loading());
}

RecentsModel::Line RecentsModel::lineOf(const CallHistory::Item& item,
                                        QHash<QString, Names>& names) const {
    Line line;
    line.item = item;
    Names found;
    if (!item.name) {
        auto known = names.constFind(item.remote);
        if (known != names.constEnd()) {
            found = *known;
        } else {
            found.colleague = colleagueName ? colleagueName(item.remote) : std::nullopt;
            if (!found.colleague && contactName) {
                found.contact = contactName(item.remote);
            }
            names.insert(item.remote, found);
        }
    }
    line.title = RecentRow::displayName(item, found.colleague, found.contact);
    line.subtitle = RecentRow::subtitle(item, line.title);
    line.missed = RecentRow::isMissed(item);
    return line;
}

void RecentsModel::rebuild() {
    const CallHistory::Owner who = owner ? owner() : CallHistory::Owner{};
    const QList<CallHistory::Item> items = m_history.items(who, m_recents.entries());
    QList<Line> lines;
    lines.reserve(items.size());
    QSet<QString> keys;
    keys.reserve(items.size());
    QHash<QString, Names> names;
    for (const CallHistory::Item& item : items) {
        Line line = lineOf(item, names);
        line.key = item.id;
        for (int n = 2; keys.contains(line.key); ++n) {
            line.key = item.id + u'#' + QString::number(n);
        }
        keys.insert(line.key);
        lines.append(std::move(line));
    }
    const bool wasEmpty = m_lines.isEmpty();
    apply(std::move(lines));
    if (wasEmpty != m_lines.isEmpty()) {
        emit viewChanged();
    }
    countMissed();
}

void RecentsModel::apply(QList<Line> lines) {
    // A further page: the rows there stay where they are and new ones follow.
    if (appendOnly(lines)) {
        return;
    }
    // Rows whose call is gone leave first, from the bottom up.
    QSet<QString> wanted;
    wanted.reserve(lines.size());
    for (const Line& line : lines) {
        wanted.insert(line.key);
    }
    for (qsizetype i = m_lines.size() - 1; i >= 0; --i) {
        if (!wanted.contains(m_lines[i].key)) {
            qsizetype first = i;
            while (first > 0 && !wanted.contains(m_lines[first - 1].key)) {
                --first;
            }
            beginRemoveRows({}, int(first), int(i));
            m_lines.remove(first, i - first + 1);
            endRemoveRows();
            i = first;
        }
    }
    QSet<QString> present;
    present.reserve(m_lines.size());
    for (const Line& line : m_lines) {
        present.insert(line.key);
    }
    // Then, walking the new order: keep and update, move up from further
    // down, or insert a run of new calls at once.
    qsizetype i = 0;
    while (i < lines.size()) {
        const QString& id = lines[i].key;
        if (i < m_lines.size() && m_lines[i].key == id) {
            if (!(m_lines[i] == lines[i])) {
                m_lines[i] = lines[i];
                const QModelIndex at = index(int(i));
                emit dataChanged(at, at);
            }
            ++i;
            continue;
        }
        if (present.contains(id)) {
            qsizetype from = i + 1;
            while (m_lines[from].key != id) {
                ++from;
            }
            beginMoveRows({}, int(from), int(from), {}, int(i));
            m_lines.move(from, i);
            endMoveRows();
            continue; // compared and updated on the next turn
        }
        qsizetype last = i;
        while (last + 1 < lines.size() && !present.contains(lines[last + 1].key)) {
            ++last;
        }
        beginInsertRows({}, int(i), int(last));
        for (qsizetype k = i; k <= last; ++k) {
            m_lines.insert(k, lines[k]);
            present.insert(lines[k].key);
        }
        endInsertRows();
        i = last + 1;
    }
}

bool RecentsModel::appendOnly(QList<Line>& lines) {
    if (lines.size() <= m_lines.size()) {
        return false;
    }
    for (qsizetype i = 0; i < m_lines.size(); ++i) {
        if (m_lines[i].key != lines[i].key) {
            return false;
        }
    }
    for (qsizetype i = 0; i < m_lines.size(); ++i) {
        if (!(m_lines[i] == lines[i])) {
            m_lines[i] = std::move(lines[i]);
            const QModelIndex at = index(int(i));
            emit dataChanged(at, at);
        }
    }
    const qsizetype first = m_lines.size();
    beginInsertRows({}, int(first), int(lines.size() - 1));
    for (qsizetype i = first; i < lines.size(); ++i) {
        m_lines.append(std::move(lines[i]));
    }
    endInsertRows();
    return true;
}

void RecentsModel::countMissed() {
    int count = 0;
    for (const Line& line : m_lines) {
        if (line.missed && line.item.date > m_lastSeen) {
            ++count;
        }
    }
    if (count != m_missedCount) {
        m_missedCount = count;
        emit missedCountChanged();
    }
}

void RecentsModel::reload() {
    if (refresh) {
        refresh();
    }
}

void RecentsModel::rowShown(int row) {
    // Only the last row of the list as it stands asks for more.
    if (row >= 0 && row == m_lines.size() - 1 && loadMore) {
        loadMore();
    }
}

void RecentsModel::callBack(int row) {
    if (row >= 0 && row < m_lines.size() && call) {
        call(m_lines[row].item.remote);
    }
}

void RecentsModel::markSeen() {
    m_lastSeen = m_clock.now();
    m_settings.setText(QString::fromLatin1(lastSeenKey), m_lastSeen.toUTC().toString(Qt::ISODate));
    countMissed();
}
