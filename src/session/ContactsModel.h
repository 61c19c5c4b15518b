#pragma once

#include "contacts/PhoneContacts.h"

#include <QAbstractListModel>
#include <QList>
#include <QPointer>
#include <QString>
#include <QStringList>

// The address book's people as rows for the directory screen's Contacts
// section, in the book's order. Each row keeps its name in searchable form
// and the digits of each number, so that ContactsFilter never touches text
// again on a keystroke.
class ContactsModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        NameRole = Qt::UserRole + 1,
        SubtitleRole,
        NumbersRole,
        DirectNumberRole,
        ThumbnailRole,
        PersonIdRole,
    };

    struct Row {
        PhoneContacts::Person person;
        QString foldedName;
        QStringList digits; // of each number, in order
        QString thumbnailUrl;
    };

    explicit ContactsModel(QObject* parent = nullptr);

    // Follows the people and the authorization of the address book.
    void bind(PhoneContacts* contacts);
    PhoneContacts* contacts() const { return m_contacts; }
    bool authorized() const { return m_contacts && m_contacts->authorized(); }

    void setPeople(const QList<PhoneContacts::Person>& people);
    const QList<Row>& rows() const { return m_rows; }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // The first number, and with more, " +" and how many others there are.
    static QString subtitleOf(const QStringList& numbers);
    // The numeric characters of a text, every one of them.
    static QString digitsOf(const QString& text);
    // A picture's bytes as an address an image can show; empty for none.
    static QString thumbnailUrlOf(const std::optional<QByteArray>& thumbnail);

signals:
    void authorizedChanged();

private:
    QPointer<PhoneContacts> m_contacts;
    QList<Row> m_rows;
};
