#pragma once

#include "api/Records.h"
#include "live/LiveRecords.h"

#include <QAbstractListModel>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>

class PresenceModel;
class Session;

// The company directory as one list for the screens: people (without the
// signed-in user), groups and call flows, each row with its section, the
// words under the name and the presence of a colleague. The rows keep their
// name in searchable form and their rank in the locale's order, so that
// DirectoryFilter filters and sorts without touching text again.
class DirectoryModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum class Section { people, groups, flows };
    Q_ENUM(Section)

    enum Role {
        NameRole = Qt::UserRole + 1,
        SubtitleRole,
        ExtensionRole,
        SectionRole,
        EntryIdRole,
        EmailRole,
        PresenceRole,
        PresenceTextRole,
        DialableRole,
        AvatarRole,
        AccessibleHintRole,
    };

    struct Row {
        Directory::Entry entry;
        Section section = Section::people;
        QString foldedName;
        int rank = 0;
    };

    explicit DirectoryModel(QObject* parent = nullptr);

    // Follows the session's directory, the signed-in user and the live
    // presence, and shows the pictures it has (asking for each as its row is read).
    void bind(Session* session);

    // The rows of a directory, without the entry of meId.
    void setDirectory(const std::optional<Directory>& directory, const QString& meId);
    void setPresenceModel(PresenceModel* presence);
    // How a row's picture is shown: an address for the view, empty while
    // none is at hand. The lookup may start fetching it.
    void setAvatarLookup(std::function<QString(const AvatarRef&)> lookup);
    // A picture arrived: rows showing it are told.
    void avatarArrived(const QString& url, const QString& version);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<Row>& rows() const { return m_rows; }

    // How a picture is named to the view's image provider "avatars": url and
    // version, each base64url, joined by ".".
    static QString avatarKey(const AvatarRef& ref);
    // The picture a key names; none for a key this model did not make.
    static std::optional<AvatarRef> avatarRefOf(const QString& key);
    // "People", "Groups", "Call flows".
    static QString sectionTitle(Section section);
    // The dot's name for a presence: "Available", "Ringing", "On a call",
    // "Do not disturb", "Offline".
    static QString presenceLabel(live::Presence presence);
    // The line under a name: "Ringing", "On a call", "Do not disturb", or empty.
    static QString presenceText(std::optional<live::Presence> presence);

private:
    std::optional<live::Presence> presenceOf(const Row& row) const;
    void presenceRowsChanged(int first, int last);
    void allPresenceChanged();

    QList<Row> m_rows;
    QHash<QString, int> m_rowOfUser;
    QPointer<PresenceModel> m_presence;
    std::function<QString(const AvatarRef&)> m_avatarLookup;
};
