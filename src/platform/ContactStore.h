#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

// The desktop's address book for writing: one connection, used on one worker
// thread and then dropped. Changes are collected and saved in one batch that
// succeeds or fails as a whole, the way the export of colleagues needs it.
class ContactStore {
public:
    enum class Access {
        notDetermined, // never asked
        denied,
        allowed,
    };

    // A value with the label it carries in the book ("work", or a text of our own).
    struct Labelled {
        QString label;
        QString value;

        bool operator==(const Labelled&) const = default;
    };

    // The fields of a contact that the export writes; a contact's other fields
    // (its note, addresses, birthday, ...) are never touched by an update.
    struct Fields {
        QString givenName;
        QString familyName;
        QString organization;
        QList<Labelled> phones;
        QList<Labelled> emails;
        // Absent: an update keeps the picture the contact has.
        std::optional<QByteArray> image;

        bool operator==(const Fields&) const = default;
    };

    // The label of a work e-mail address.
    static constexpr char workLabel[] = "work";

    virtual ~ContactStore() = default;

    virtual Access access() = 0;
    // Asks for access and waits for the answer; its failure is not told.
    virtual void requestAccess() = 0;

    struct Group {
        QString id;
        QString name;

        bool operator==(const Group&) const = default;
    };
    // The groups in the store's order, or none when they cannot be listed.
    virtual std::optional<QList<Group>> groups() = 0;
    // Makes a group at once, in a save of its own; none when that failed.
    virtual std::optional<Group> addGroup(const QString& name) = 0;

    // Reads many contacts at once ahead of fetch(), where the book can; fetch()
    // then answers from what was read.
    virtual void prefetch(const QStringList& ids) { Q_UNUSED(ids); }
    // Reads a contact for the batch below: its fields, or none when the
    // contact is not in the book (the user deleted it) or cannot be read.
    virtual std::optional<Fields> fetch(const QString& id) = 0;

    // The batch. update() and remove() name contacts fetched before; add()
    // gives the position of the new contact among the added ones.
    virtual void update(const QString& id, const Fields& fields) = 0;
    virtual int add(const Fields& fields, const std::optional<QString>& groupId) = 0;
    virtual void remove(const QString& id) = 0;

    struct Saved {
        // The book's own description of why the batch was refused.
        std::optional<QString> failure;
        // The identifiers of the added contacts, in the order they were added;
        // they exist only once the batch is saved.
        QStringList added;
    };
    // Saves the batch, all of it or nothing.
    virtual Saved execute() = 0;
};

// Evolution Data Server's system address book. Groups are categories: the
// desktop's list of categories holds the group, its name is its id, and a
// contact is in it when it carries the category.
class EdsContactStore final : public ContactStore {
public:
    EdsContactStore();
    ~EdsContactStore() override;
    EdsContactStore(const EdsContactStore&) = delete;
    EdsContactStore& operator=(const EdsContactStore&) = delete;

    Access access() override;
    void requestAccess() override;
    std::optional<QList<Group>> groups() override;
    std::optional<Group> addGroup(const QString& name) override;
    void prefetch(const QStringList& ids) override;
    std::optional<Fields> fetch(const QString& id) override;
    void update(const QString& id, const Fields& fields) override;
    int add(const Fields& fields, const std::optional<QString>& groupId) override;
    void remove(const QString& id) override;
    Saved execute() override;

    // Why the book could not be opened, when it could not.
    std::optional<QString> openFailure() const { return m_openFailure; }

private:
    struct Book;
    // Connects on first use; false when the book cannot be opened.
    bool open();

    std::unique_ptr<Book> m_book;
    bool m_tried = false;
    std::optional<QString> m_openFailure;
};
