#pragma once

#include "platform/AddressBook.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <QCoro/QCoroTask>

#include <memory>
#include <optional>

// The people of the desktop's address book, so that a number can show a
// name. The book is read away from the main thread into a map by number, so
// that looking a number up never touches the book.
class PhoneContacts : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool authorized READ authorized NOTIFY authorizedChanged)
    Q_PROPERTY(int count READ count NOTIFY peopleChanged)
public:
    struct Person {
        QString id;
        QString name;
        QStringList numbers; // never empty
        std::optional<QByteArray> thumbnail;

        bool operator==(const Person&) const = default;
    };

    // Reads nothing yet: the first refresh() does.
    explicit PhoneContacts(std::shared_ptr<AddressBook> book, QObject* parent = nullptr);

    // Whether the last read of the book worked; on this desktop the book needs
    // no permission, only its service running.
    bool authorized() const { return m_authorized; }
    const QList<Person>& people() const { return m_people; }
    int count() const { return int(m_people.size()); }

    // Reads the book again on a worker and replaces the people and the map.
    QCoro::Task<> refresh();
    // The directory screen's prompt: on this desktop nobody grants access,
    // the book's service only has to run. Opening it makes the session bus
    // start the service, so asking is reading again.
    QCoro::Task<> requestAccess();
    // The person a number belongs to, by its last ten digits; a key of fewer
    // than six digits (an extension) never matches.
    std::optional<Person> person(const QString& number) const;
    std::optional<QString> name(const QString& number) const;

    // The numeric characters of a number, the last ten of them.
    static QString numberKey(const QString& number);
    // People in given-name order, the ones without a number left out; the
    // first person to have a key keeps it.
    static QList<Person> peopleOf(std::vector<AddressBook::Contact> contacts);
    // Each person under the key of each of their numbers; the first to have a key keeps it.
    static QHash<QString, Person> mapOf(const QList<Person>& people);

signals:
    void authorizedChanged();
    void peopleChanged();
    // A read of the book on the worker is over; refresh() waits for its own.
    void readFinished(quint64 serial);

private:
    void setAuthorized(bool authorized);

    std::shared_ptr<AddressBook> m_book;
    bool m_authorized = false;
    QList<Person> m_people;
    QHash<QString, Person> m_byNumber;
    bool m_toldAbsent = false;
    quint64 m_reads = 0;
};
