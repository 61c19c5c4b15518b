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
    // Adds the contacts to the system address book in one batch.
    void add(const QList<Card>& cards);

private:
    ChildProcess m_registry;
    ChildProcess m_books;
};
