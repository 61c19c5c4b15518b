#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// The desktop's address book, read only. Reading blocks, so it is done away
// from the main thread, and each read opens a connection of its own.
class AddressBook {
public:
    struct Contact {
        QString id;
        QString fullName; // empty when the contact has none
        QString givenName;
        QStringList numbers; // as the book spells them, in its order
        std::optional<QByteArray> thumbnail;

        bool operator==(const Contact&) const = default;
    };

    virtual ~AddressBook() = default;

    // The contacts in the book, or none with the reason when it cannot be read.
    struct Read {
        std::vector<Contact> contacts;
        std::optional<QString> failure;
    };
    virtual Read read() = 0;
};

// Evolution Data Server's system address book, the one GNOME's and other
// desktops' contact apps share.
class EdsAddressBook final : public AddressBook {
public:
    Read read() override;

private:
    Read readBook();
};
