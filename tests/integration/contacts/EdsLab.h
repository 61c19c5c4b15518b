#pragma once

// Evolution Data Server of its own for one test: the source registry and the
// address-book factory on a private session bus, with a home of their own,
// stopped by their PIDs when the object goes.

#include "Services.h"

#include <QString>
#include <QStringList>

class EdsLab {
public:
    // Starts both services on the bus (whose address this process already has).
    explicit EdsLab(PrivateBus& bus);

    struct Card {
        QString fullName;
        QString givenName;
        QStringList numbers;
    };
    // Adds the contacts to the system address book in one batch; gives their identifiers.
    QStringList add(const QList<Card>& cards);

    // What the user does in a contacts app: a note on a contact, a contact deleted.
    void setNote(const QString& id, const QString& note);
    // A picture kept inside the contact, as a contacts app stores one.
    void setPhoto(const QString& id, const QByteArray& jpeg);
    void remove(const QString& id);

    // The whole system address book as vCards, read in a process of its own
    // through EDS's client library from Python (list_contacts.py).
    QByteArray readVCards();

private:
    QProcessEnvironment m_environment;
    ChildProcess m_registry;
    ChildProcess m_books;
};
