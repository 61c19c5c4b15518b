#include "session/DirectoryModel.h"

#include "history/SearchText.h"
#include "live/LiveModels.h"
#include "session/Session.h"

#include <QCollator>
#include <QLocale>

#include <algorithm>
#include <numeric>
#include <vector>

DirectoryModel::DirectoryModel(QObject* parent) : QAbstractListModel(parent) {}

namespace {

constexpr auto avatarKeyEncoding = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;

} // namespace

std::optional<AvatarRef> DirectoryModel::avatarRefOf(const QString& key) {
    const auto parts = key.split(u'.');
    if (parts.size() != 2) {
        return std::nullopt;
    }
    constexpr auto strict = avatarKeyEncoding | QByteArray::AbortOnBase64DecodingErrors;
    const auto url = QByteArray::fromBase64Encoding(parts[0].toLatin1(), strict);
    const auto version = QByteArray::fromBase64Encoding(parts[1].toLatin1(), strict);
    if (!url || !version) {
        return std::nullopt;
    }
    return AvatarRef{QString::fromUtf8(*url), QString::fromUtf8(*version)};
}

QString DirectoryModel::avatarKey(const AvatarRef& ref) {
    constexpr auto encoding = avatarKeyEncoding;
    return QString::fromLatin1(ref.url.toUtf8().toBase64(encoding) + '.' +
                               ref.version.toUtf8().toBase64(encoding));
}

QString DirectoryModel::sectionTitle(Section section) {
    switch (section) {
    case Section::people:
        return tr("People");
    case Section::groups:
        return tr("Groups");
    case Section::flows:
        return tr("Call flows");
    }
    return {};
}

QString DirectoryModel::presenceLabel(live::Presence presence) {
    switch (presence) {
    case live::Presence::idle:
        return tr("Available");
    case live::Presence::ringing:
        return tr("Ringing");
    case live::Presence::busy:
        return tr("On a call");
    case live::Presence::dnd:
        return tr("Do not disturb");
    case live::Presence::offline:
        return tr("Offline");
    }
    return {};
}

QString DirectoryModel::presenceText(std::optional<live::Presence> presence) {
    if (!presence) {
        return {};
    }
    switch (*presence) {
    case live::Presence::ringing:
        return tr("Ringing");
    case live::Presence::busy:
        return tr("On a call");
    case live::Presence::dnd:
        return tr("Do not disturb");
    case live::Presence::idle:
    case live::Presence::offline:
        return {};
    }
    return {};
}

void DirectoryModel::bind(Session* session) {
    const auto reload = [this, session] { setDirectory(session->directory(), session->meId()); };
    connect(session, &Session::directoryChanged, this, reload);
    connect(session, &Session::meChanged, this, reload);
    connect(session, &Session::avatarImageAdded, this, &DirectoryModel::avatarArrived);
    setPresenceModel(session->live().presenceModel());
    QPointer<Session> weak(session);
    setAvatarLookup([weak](const AvatarRef& ref) -> QString {
        if (!weak) {
            return {};
        }
        if (weak->avatarImages().contains(ref)) {
            return QStringLiteral("image://avatars/") + avatarKey(ref);
        }
        // Asked for as the row shows; the row is told when it comes.
        weak->avatarData(ref);
        return {};
    });
    reload();
}

void DirectoryModel::setDirectory(const std::optional<Directory>& directory, const QString& meId) {
    QList<Row> rows;
    if (directory) {
        rows.reserve(directory->users.size() + directory->groups.size() + directory->flows.size());
        const auto add = [&rows](const QList<Directory::Entry>& entries, Section section,
                                 const QString& skip) {
            for (const auto& entry : entries) {
                if (!skip.isEmpty() && entry.id == skip) {
                    continue;
                }
                rows.append(Row{entry, section, SearchText::fold(entry.name), 0});
            }
        };
        add(directory->users, Section::people, meId);
        add(directory->groups, Section::groups, {});
        add(directory->flows, Section::flows, {});
    }
    // The locale's order, worked out once per directory: a keystroke only compares numbers.
    // A session without a language (LANG=C) still sorts as people read, not by code point.
    QLocale locale;
    if (locale.language() == QLocale::C) {
        locale = QLocale(QLocale::English, QLocale::UnitedStates);
    }
    QCollator collator{locale};
    std::vector<QCollatorSortKey> keys;
    keys.reserve(size_t(rows.size()));
    for (const auto& row : rows) {
        keys.push_back(collator.sortKey(row.entry.name));
    }
    std::vector<int> order(size_t(rows.size()));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
        if (rows[a].section != rows[b].section) {
            return rows[a].section < rows[b].section;
        }
        return keys[size_t(a)].compare(keys[size_t(b)]) < 0;
    });
    for (int rank = 0; rank < int(order.size()); ++rank) {
        rows[order[size_t(rank)]].rank = rank;
    }

    beginResetModel();
    m_rows = std::move(rows);
    m_rowOfUser.clear();
    for (int i = 0; i < m_rows.size(); ++i) {
        if (m_rows[i].section == Section::people) {
            m_rowOfUser.insert(m_rows[i].entry.id, i);
        }
    }
    endResetModel();
}

void DirectoryModel::setPresenceModel(PresenceModel* presence) {
    if (m_presence) {
        disconnect(m_presence, nullptr, this, nullptr);
    }
    m_presence = presence;
    if (presence) {
        connect(presence, &QAbstractItemModel::dataChanged, this,
                [this](const QModelIndex& from, const QModelIndex& to) {
                    presenceRowsChanged(from.row(), to.row());
                });
        connect(
            presence, &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex&, int first, int last) { presenceRowsChanged(first, last); });
        connect(presence, &QAbstractItemModel::modelReset, this,
                &DirectoryModel::allPresenceChanged);
        connect(presence, &QAbstractItemModel::rowsRemoved, this,
                &DirectoryModel::allPresenceChanged);
    }
    allPresenceChanged();
}

void DirectoryModel::setAvatarLookup(std::function<QString(const AvatarRef&)> lookup) {
    m_avatarLookup = std::move(lookup);
}

void DirectoryModel::avatarArrived(const QString& url, const QString& version) {
    const AvatarRef ref{url, version};
    for (int i = 0; i < m_rows.size(); ++i) {
        if (m_rows[i].entry.avatar == ref) {
            emit dataChanged(index(i), index(i), {AvatarRole});
        }
    }
}

void DirectoryModel::presenceRowsChanged(int first, int last) {
    if (!m_presence) {
        return;
    }
    for (int r = first; r <= last; ++r) {
        const QString user =
            m_presence->data(m_presence->index(r), PresenceModel::UserIdRole).toString();
        if (const auto it = m_rowOfUser.constFind(user); it != m_rowOfUser.cend()) {
            emit dataChanged(index(*it), index(*it),
                             {PresenceRole, PresenceTextRole, SubtitleRole});
        }
    }
}

void DirectoryModel::allPresenceChanged() {
    if (!m_rows.isEmpty()) {
        emit dataChanged(index(0), index(int(m_rows.size()) - 1),
                         {PresenceRole, PresenceTextRole, SubtitleRole});
    }
}

std::optional<live::Presence> DirectoryModel::presenceOf(const Row& row) const {
    if (row.section != Section::people || !m_presence) {
        return std::nullopt;
    }
    const QString word = m_presence->presenceOf(row.entry.id);
    if (word.isEmpty()) {
        return std::nullopt;
    }
    return live::presenceFromText(word);
}

int DirectoryModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant DirectoryModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_rows.size()) {
        return {};
    }
    const Row& row = m_rows.at(index.row());
    const auto& entry = row.entry;
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return entry.name;
    case SubtitleRole: {
        const QString presence = presenceText(presenceOf(row));
        return presence.isEmpty() ? entry.email.value_or(QString()) : presence;
    }
    case ExtensionRole:
        return entry.extension_.value_or(QString());
    case SectionRole:
        return sectionTitle(row.section);
    case EntryIdRole:
        return entry.id;
    case EmailRole:
        return entry.email.value_or(QString());
    case PresenceRole: {
        const auto presence = presenceOf(row);
        return presence ? live::presenceText(*presence) : QString();
    }
    case PresenceTextRole:
        return presenceText(presenceOf(row));
    case DialableRole:
        return entry.extension_.has_value();
    case AvatarRole:
        return entry.avatar && m_avatarLookup ? m_avatarLookup(*entry.avatar) : QString();
    case AccessibleHintRole:
        return entry.extension_ ? tr("Calls %1").arg(entry.name) : QString();
    default:
        return {};
    }
}

QHash<int, QByteArray> DirectoryModel::roleNames() const {
    return {
        {NameRole, "name"},
        {SubtitleRole, "subtitle"},
        {ExtensionRole, "extension"},
        {SectionRole, "section"},
        {EntryIdRole, "entryId"},
        {EmailRole, "email"},
        {PresenceRole, "presence"},
        {PresenceTextRole, "presenceText"},
        {DialableRole, "dialable"},
        {AvatarRole, "avatar"},
        {AccessibleHintRole, "accessibleHint"},
    };
}
