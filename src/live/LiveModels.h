#pragma once

#include "live/LiveRecords.h"

#include <QAbstractListModel>
#include <QByteArray>
#include <QHash>
#include <QList>
#include <QVariant>

#include <functional>
#include <utility>
#include <vector>

// List models over the live state for the screens. Each is changed by row:
// a delta touches the one row it names, and only a snapshot resets a list,
// so that a large directory with presence changing every second stays cheap
// to show.

// What a row of a given record offers to a view: its role names and values.
template <typename T> struct LiveRoles;

struct BoardRow {
    QString queueId;
    live::QueueBoard board;
    bool operator==(const BoardRow&) const = default;
};

template <> struct LiveRoles<live::Call> {
    static QHash<int, QByteArray> names();
    static QVariant value(const live::Call& call, int role);
};
template <> struct LiveRoles<live::Leg> {
    static QHash<int, QByteArray> names();
    static QVariant value(const live::Leg& leg, int role);
};
template <> struct LiveRoles<live::Participant> {
    static QHash<int, QByteArray> names();
    static QVariant value(const live::Participant& participant, int role);
};
template <> struct LiveRoles<BoardRow> {
    static QHash<int, QByteArray> names();
    static QVariant value(const BoardRow& row, int role);
};

// A list of records, each row one record, with the row operations that the
// reducers use. The rows are the records themselves, so a view never reads
// anything older than the state it mirrors.
template <typename T> class LiveListModel : public QAbstractListModel {
public:
    explicit LiveListModel(QObject* parent = nullptr) : QAbstractListModel(parent) {}

    int rowCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : int(m_rows.size());
    }
    QVariant data(const QModelIndex& index, int role) const override {
        if (!index.isValid() || index.row() >= m_rows.size()) {
            return {};
        }
        return LiveRoles<T>::value(m_rows.at(index.row()), role);
    }
    QHash<int, QByteArray> roleNames() const override { return LiveRoles<T>::names(); }

    const QList<T>& rows() const { return m_rows; }

    void reset(QList<T> rows) {
        beginResetModel();
        m_rows = std::move(rows);
        endResetModel();
    }
    void setRow(int row, T value) {
        if (m_rows.at(row) == value) {
            return;
        }
        m_rows[row] = std::move(value);
        emit dataChanged(index(row), index(row));
    }
    void append(T value) {
        beginInsertRows({}, int(m_rows.size()), int(m_rows.size()));
        m_rows.append(std::move(value));
        endInsertRows();
    }
    void removeAt(int row) {
        beginRemoveRows({}, row, row);
        m_rows.removeAt(row);
        endRemoveRows();
    }
    void clear() {
        if (!m_rows.isEmpty()) {
            reset({});
        }
    }

private:
    QList<T> m_rows;
};

using CallsModel = LiveListModel<live::Call>;
using LegsModel = LiveListModel<live::Leg>;
using ParticipantsModel = LiveListModel<live::Participant>;
using BoardsModel = LiveListModel<BoardRow>;

// Presence of every colleague the server reports, one row per user id, found
// by id in constant time.
class PresenceModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role { UserIdRole = Qt::UserRole + 1, PresenceRole };

    explicit PresenceModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // The presence word of a user ("idle", "busy", ...), empty when unknown.
    Q_INVOKABLE QString presenceOf(const QString& userId) const;

    void reset(const QList<std::pair<QString, live::Presence>>& users);
    void set(const QString& userId, live::Presence presence);
    void clear();

private:
    std::vector<std::pair<QString, live::Presence>> m_rows;
    QHash<QString, int> m_rowOf;
};
