#pragma once

#include "platform/ContactStore.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

// An address book in memory for the logic's unit tests: the export's worker
// writes it through MemoryContactStore, the test reads and edits it as the
// user would. A batch is applied all at once or not at all.
struct MemoryBook {
    struct Contact {
        QString id;
        ContactStore::Fields fields;
        QString note;
        QStringList groupIds;
    };

    std::mutex lock;
    std::vector<Contact> contacts;
    QList<ContactStore::Group> groups;
    ContactStore::Access access = ContactStore::Access::allowed;
    // What the access becomes once asked.
    ContactStore::Access answer = ContactStore::Access::allowed;
    int accessRequests = 0;
    bool failGroupListing = false;
    bool failGroupMaking = false;
    std::optional<QString> failSave;
    int saves = 0;
    int updates = 0;
    int nextId = 1;

    // Holds the next save until release(), so a test can act while an export runs.
    bool holding = false;
    std::condition_variable released;

    std::optional<Contact> find(const QString& id) {
        std::lock_guard guard(lock);
        for (const auto& contact : contacts) {
            if (contact.id == id) {
                return contact;
            }
        }
        return std::nullopt;
    }
    // The contacts with the name as the desktop shows it.
    std::vector<Contact> named(const QString& givenName) {
        std::lock_guard guard(lock);
        std::vector<Contact> found;
        for (const auto& contact : contacts) {
            if (contact.fields.givenName == givenName) {
                found.push_back(contact);
            }
        }
        return found;
    }
    void edit(const QString& id, const std::function<void(Contact&)>& change) {
        std::lock_guard guard(lock);
        for (auto& contact : contacts) {
            if (contact.id == id) {
                change(contact);
            }
        }
    }
    void erase(const QString& id) {
        std::lock_guard guard(lock);
        std::erase_if(contacts, [&](const Contact& contact) { return contact.id == id; });
    }
    QString addByHand(const QString& givenName, const QStringList& numbers) {
        std::lock_guard guard(lock);
        Contact contact;
        contact.id = "hand-" + QString::number(nextId++);
        contact.fields.givenName = givenName;
        for (const QString& number : numbers) {
            contact.fields.phones.append(ContactStore::Labelled{"mobile", number});
        }
        contacts.push_back(contact);
        return contact.id;
    }
    size_t size() {
        std::lock_guard guard(lock);
        return contacts.size();
    }
    void hold() {
        std::lock_guard guard(lock);
        holding = true;
    }
    void release() {
        {
            std::lock_guard guard(lock);
            holding = false;
        }
        released.notify_all();
    }
};

class MemoryContactStore final : public ContactStore {
public:
    explicit MemoryContactStore(std::shared_ptr<MemoryBook> book) : m_book(std::move(book)) {}

    Access access() override {
        std::lock_guard guard(m_book->lock);
        return m_book->access;
    }
    void requestAccess() override {
        std::lock_guard guard(m_book->lock);
        ++m_book->accessRequests;
        m_book->access = m_book->answer;
    }
    std::optional<QList<Group>> groups() override {
        std::lock_guard guard(m_book->lock);
        if (m_book->failGroupListing) {
            return std::nullopt;
        }
        return m_book->groups;
    }
    std::optional<Group> addGroup(const QString& name) override {
        std::lock_guard guard(m_book->lock);
        if (m_book->failGroupMaking) {
            return std::nullopt;
        }
        Group group{"group-" + QString::number(m_book->nextId++), name};
        m_book->groups.append(group);
        return group;
    }
    std::optional<Fields> fetch(const QString& id) override {
        std::lock_guard guard(m_book->lock);
        for (const auto& contact : m_book->contacts) {
            if (contact.id == id) {
                return contact.fields;
            }
        }
        return std::nullopt;
    }
    void update(const QString& id, const Fields& fields) override {
        m_updates.push_back({id, fields});
    }
    int add(const Fields& fields, const std::optional<QString>& groupId) override {
        m_adds.push_back({fields, groupId});
        return int(m_adds.size()) - 1;
    }
    void remove(const QString& id) override { m_removes.push_back(id); }
    Saved execute() override {
        std::unique_lock guard(m_book->lock);
        m_book->released.wait(guard, [&] { return !m_book->holding; });
        ++m_book->saves;
        if (m_book->failSave) {
            return {m_book->failSave, {}};
        }
        Saved saved;
        for (const auto& [id, fields] : m_updates) {
            for (auto& contact : m_book->contacts) {
                if (contact.id == id) {
                    // Only what the export writes: the picture stays when none is given.
                    const auto image = contact.fields.image;
                    contact.fields = fields;
                    if (!fields.image) {
                        contact.fields.image = image;
                    }
                    ++m_book->updates;
                }
            }
        }
        for (const QString& id : m_removes) {
            std::erase_if(m_book->contacts,
                          [&](const MemoryBook::Contact& contact) { return contact.id == id; });
        }
        for (const auto& [fields, groupId] : m_adds) {
            MemoryBook::Contact contact;
            contact.id = "contact-" + QString::number(m_book->nextId++);
            contact.fields = fields;
            if (groupId) {
                contact.groupIds.append(*groupId);
            }
            m_book->contacts.push_back(contact);
            saved.added.append(contact.id);
        }
        return saved;
    }

private:
    std::shared_ptr<MemoryBook> m_book;
    std::vector<std::pair<QString, Fields>> m_updates;
    std::vector<std::pair<Fields, std::optional<QString>>> m_adds;
    std::vector<QString> m_removes;
};
