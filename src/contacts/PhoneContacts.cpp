#include "contacts/PhoneContacts.h"

#include "platform/Log.h"

#include <QCollator>
#include <QCoreApplication>
#include <QPointer>

#include <QCoro/QCoroSignal>

#include <algorithm>
#include <thread>

#include <sys/resource.h>
#include <unistd.h>

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

QHash<QString, PhoneContacts::Person> PhoneContacts::mapOf(const QList<Person>& people) {
    QHash<QString, Person> byNumber;
    for (const Person& person : people) {
        for (const QString& number : person.numbers) {
            // Earlier people, in given-name order, keep a number they share.
            const QString key = numberKey(number);
            if (!byNumber.contains(key)) {
                byNumber.insert(key, person);
            }
        }
    }
    return byNumber;
}

QCoro::Task<> PhoneContacts::refresh() {
    struct Outcome {
        std::optional<QString> failure;
        QList<Person> people;
        QHash<QString, Person> byNumber;
    };
    auto outcome = std::make_shared<Outcome>();
    const quint64 serial = ++m_reads;
    // The worker's word comes back as an event posted to the main thread, so
    // it cannot arrive before the wait below is in place.
    QPointer<PhoneContacts> self(this);
    // The book is read, sorted and mapped on a thread of its own with a
    // connection of its own; the main thread only takes the result.
    std::thread([book = m_book, outcome, self, serial] {
        // Background work: on Linux a thread's nice value is its own, so the
        // read gives way to the main thread whenever both want a core.
        setpriority(PRIO_PROCESS, pid_t(gettid()), 10);
        auto read = book->read();
        if (read.failure && read.contacts.empty()) {
            outcome->failure = read.failure;
        } else {
            outcome->people = peopleOf(std::move(read.contacts));
            outcome->byNumber = mapOf(outcome->people);
        }
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, serial] {
                if (self) {
                    emit self->readFinished(serial);
                }
            },
            Qt::QueuedConnection);
    }).detach();
    while (co_await qCoro(this, &PhoneContacts::readFinished) != serial) {
    }
    const auto failure = outcome->failure;
    QList<Person> people = std::move(outcome->people);
    QHash<QString, Person> byNumber = std::move(outcome->byNumber);
    setAuthorized(!failure);
    if (failure && !m_toldAbsent) {
        m_toldAbsent = true;
        Log::info(Log::app, QStringLiteral("The address book cannot be read (%1); callers are "
                                           "named from the directory only")
                                .arg(*failure));
    }
    const bool changed = !(m_people.isEmpty() && people.isEmpty());
    m_people.swap(people);
    m_byNumber.swap(byNumber);
    if (changed) {
        emit peopleChanged();
    }
}

QCoro::Task<> PhoneContacts::requestAccess() {
    co_await refresh();
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
