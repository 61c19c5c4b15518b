#include "contacts/PhoneContacts.h"

#include "platform/Log.h"

#include <QCollator>
#include <QThread>

#include <QCoro/QCoroThread>

#include <algorithm>

PhoneContacts::PhoneContacts(std::shared_ptr<AddressBook> book, QObject* parent)
    : QObject(parent), m_book(std::move(book)) {}

void PhoneContacts::setAuthorized(bool authorized) {
    if (authorized != m_authorized) {
        m_authorized = authorized;
        emit authorizedChanged();
    }
}

QString PhoneContacts::numberKey(const QString& number) {
    QString digits;
    for (const QChar c : number) {
        if (c.isNumber()) {
            digits.append(c);
        }
    }
    return digits.right(10);
}

QList<PhoneContacts::Person> PhoneContacts::peopleOf(std::vector<AddressBook::Contact> contacts) {
    QCollator collator;
    std::stable_sort(contacts.begin(), contacts.end(),
                     [&](const AddressBook::Contact& a, const AddressBook::Contact& b) {
                         return collator.compare(a.givenName, b.givenName) < 0;
                     });
    QList<Person> people;
    for (auto& contact : contacts) {
        if (contact.numbers.isEmpty()) {
            continue;
        }
        Person person;
        person.id = contact.id;
        person.name = contact.fullName.isEmpty() ? contact.numbers.first() : contact.fullName;
        person.numbers = contact.numbers;
        person.thumbnail = contact.thumbnail;
        people.append(std::move(person));
    }
    return people;
}

QCoro::Task<> PhoneContacts::refresh() {
    auto book = m_book;
    AddressBook::Read read;
    // The book is read on a thread of its own with a connection of its own;
    // the result comes back by value.
    std::unique_ptr<QThread> worker(QThread::create([book, &read] { read = book->read(); }));
    worker->start();
    co_await qCoro(worker.get()).waitForFinished();
    const bool readable = !read.failure || !read.contacts.empty();
    setAuthorized(readable);
    if (!readable) {
        if (!m_toldAbsent) {
            m_toldAbsent = true;
            Log::info(Log::app, QStringLiteral("The address book cannot be read (%1); callers "
                                               "are named from the directory only")
                                    .arg(*read.failure));
        }
        m_byNumber.clear();
        if (!m_people.isEmpty()) {
            m_people.clear();
            emit peopleChanged();
        }
        co_return;
    }
    QList<Person> people = peopleOf(std::move(read.contacts));
    m_byNumber.clear();
    for (const Person& person : people) {
        for (const QString& number : person.numbers) {
            const QString key = numberKey(number);
            if (!m_byNumber.contains(key)) {
                m_byNumber.insert(key, person);
            }
        }
    }
    if (people != m_people) {
        m_people = std::move(people);
        emit peopleChanged();
    }
}

std::optional<PhoneContacts::Person> PhoneContacts::person(const QString& number) const {
    const QString key = numberKey(number);
    if (key.size() < 6) {
        return std::nullopt;
    }
    const auto found = m_byNumber.constFind(key);
    if (found == m_byNumber.cend()) {
        return std::nullopt;
    }
    return *found;
}

std::optional<QString> PhoneContacts::name(const QString& number) const {
    if (const auto found = person(number)) {
        return found->name;
    }
    return std::nullopt;
}
