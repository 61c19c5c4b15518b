// GLib's headers name a struct member "signals", which Qt defines as a macro:
// they come first.
#include <libebook/libebook.h>
#include <libedataserver/libedataserver.h>

#include "platform/ContactStore.h"
#include "platform/EdsPhoto.h"

#include <QHash>
#include <QSet>

#include <mutex>
#include <vector>

namespace {

// A label of our own rides on the attribute beside a type that desktop
// address books understand, so they show the value as a work one.
constexpr char labelParam[] = "X-LABEL";

// The desktop's list of categories is one per process and not guarded by
// its library; two exports may overlap.
std::mutex categoriesLock;

QString takeError(GError*& error) {
    const QString text = error ? QString::fromUtf8(error->message) : QStringLiteral("unknown");
    g_clear_error(&error);
    return text;
}

QString text(EContact* contact, EContactField id) {
    const auto* value = static_cast<const char*>(e_contact_get_const(contact, id));
    return value ? QString::fromUtf8(value) : QString();
}

void setText(EContact* contact, EContactField id, const QString& value) {
    e_contact_set(contact, id, value.isEmpty() ? nullptr : value.toUtf8().constData());
}

QList<ContactStore::Labelled> labelledOf(EContact* contact, EContactField id) {
    QList<ContactStore::Labelled> values;
    GList* attributes = e_contact_get_attributes(contact, id);
    for (GList* item = attributes; item; item = item->next) {
        auto* attribute = static_cast<EVCardAttribute*>(item->data);
        ContactStore::Labelled entry;
        char* value = e_vcard_attribute_get_value(attribute);
        entry.value = QString::fromUtf8(value ? value : "");
        g_free(value);
        if (GList* label = e_vcard_attribute_get_param(attribute, labelParam)) {
            entry.label = QString::fromUtf8(static_cast<const char*>(label->data));
        } else if (e_vcard_attribute_has_type(attribute, "WORK")) {
            entry.label = QString::fromLatin1(ContactStore::workLabel);
        }
        values.append(entry);
    }
    g_list_free_full(attributes, reinterpret_cast<GDestroyNotify>(e_vcard_attribute_free));
    return values;
}

void setLabelled(EContact* contact, const char* name, const QList<ContactStore::Labelled>& values) {
    EVCard* card = E_VCARD(contact);
    e_vcard_remove_attributes(card, nullptr, name);
    for (const auto& entry : values) {
        EVCardAttribute* attribute = e_vcard_attribute_new(nullptr, name);
        e_vcard_attribute_add_param_with_value(attribute, e_vcard_attribute_param_new("TYPE"),
                                               "WORK");
        if (entry.label != QLatin1String(ContactStore::workLabel) && !entry.label.isEmpty()) {
            e_vcard_attribute_add_param_with_value(attribute,
                                                   e_vcard_attribute_param_new(labelParam),
                                                   entry.label.toUtf8().constData());
        }
        e_vcard_append_attribute_with_value(card, attribute, entry.value.toUtf8().constData());
    }
}

const char* mimeTypeOf(const QByteArray& image) {
    if (image.startsWith("\x89PNG")) {
        return "image/png";
    }
    if (image.startsWith("GIF8")) {
        return "image/gif";
    }
    return "image/jpeg";
}

ContactStore::Fields fieldsOf(EContact* contact) {
    ContactStore::Fields fields;
    fields.givenName = text(contact, E_CONTACT_GIVEN_NAME);
    fields.familyName = text(contact, E_CONTACT_FAMILY_NAME);
    fields.organization = text(contact, E_CONTACT_ORG);
    fields.phones = labelledOf(contact, E_CONTACT_TEL);
    fields.emails = labelledOf(contact, E_CONTACT_EMAIL);
    fields.image = contactPhoto(contact);
    return fields;
}

void apply(EContact* contact, const ContactStore::Fields& fields) {
    setText(contact, E_CONTACT_GIVEN_NAME, fields.givenName);
    setText(contact, E_CONTACT_FAMILY_NAME, fields.familyName);
    // The shown name is what the desktop's formatter makes of the two.
    setText(contact, E_CONTACT_FULL_NAME,
            (fields.givenName + QLatin1Char(' ') + fields.familyName).trimmed());
    setText(contact, E_CONTACT_ORG, fields.organization);
    setLabelled(contact, "TEL", fields.phones);
    setLabelled(contact, "EMAIL", fields.emails);
    if (fields.image) {
        EContactPhoto* photo = e_contact_photo_new();
        photo->type = E_CONTACT_PHOTO_TYPE_INLINED;
        e_contact_photo_set_inlined(photo,
                                    reinterpret_cast<const guchar*>(fields.image->constData()),
                                    gsize(fields.image->size()));
        e_contact_photo_set_mime_type(photo, mimeTypeOf(*fields.image));
        e_contact_set(contact, E_CONTACT_PHOTO, photo);
        e_contact_photo_free(photo);
    }
}

// GLib ends the whole process when its shared session-bus connection closes;
// a book that goes away must only fail the export. The connection is kept for
// the life of the process, because GLib makes it anew, ending the process on
// close again, once its last reference goes.
bool keepSessionBus(GError*& error) {
    static std::mutex lock;
    static GDBusConnection* kept = nullptr;
    const std::lock_guard guard(lock);
    if (!kept) {
        kept = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
        if (!kept) {
            return false;
        }
        g_dbus_connection_set_exit_on_close(kept, FALSE);
    }
    return true;
}

GSList* listOf(const std::vector<EContact*>& contacts) {
    GSList* list = nullptr;
    for (auto it = contacts.rbegin(); it != contacts.rend(); ++it) {
        list = g_slist_prepend(list, *it);
    }
    return list;
}

} // namespace

struct EdsContactStore::Book {
    // This thread's own main context, so nothing of the book is dispatched on
    // a context another thread iterates.
    GMainContext* context = nullptr;
    ESourceRegistry* registry = nullptr;
    ESource* source = nullptr;
    EClient* client = nullptr;
    QHash<QString, EContact*> fetched;
    // Looked for by prefetch(): one missing from `fetched` is not in the book.
    QSet<QString> sought;
    std::vector<EContact*> modified;
    std::vector<EContact*> added;
    std::vector<QString> removed;

    Book() {
        context = g_main_context_new();
        g_main_context_push_thread_default(context);
    }
    ~Book() {
        for (EContact* contact : fetched) {
            g_object_unref(contact);
        }
        for (EContact* contact : added) {
            g_object_unref(contact);
        }
        if (client) {
            g_object_unref(client);
        }
        if (source) {
            g_object_unref(source);
        }
        if (registry) {
            g_object_unref(registry);
        }
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }
    EBookClient* book() const { return E_BOOK_CLIENT(client); }
};

EdsContactStore::EdsContactStore() = default;
EdsContactStore::~EdsContactStore() = default;

bool EdsContactStore::open() {
    if (m_tried) {
        return m_book && m_book->client;
    }
    m_tried = true;
    if (!m_book) {
        m_book = std::make_unique<Book>();
    }
    GError* error = nullptr;
    if (!keepSessionBus(error)) {
        m_openFailure = takeError(error);
        return false;
    }
    m_book->registry = e_source_registry_new_sync(nullptr, &error);
    if (!m_book->registry) {
        m_openFailure = takeError(error);
        return false;
    }
    m_book->source = e_source_registry_ref_builtin_address_book(m_book->registry);
    if (!m_book->source) {
        m_openFailure = QStringLiteral("no system address book");
        return false;
    }
    // (guint32)-1: the local book is there at once; 0 would wait for ever.
    m_book->client = e_book_client_connect_sync(m_book->source, guint32(-1), nullptr, &error);
    if (!m_book->client) {
        m_openFailure = takeError(error);
        return false;
    }
    return true;
}

ContactStore::Access EdsContactStore::access() {
    // The desktop's book asks no permission: it is there when its service runs.
    return open() ? Access::allowed : Access::denied;
}

void EdsContactStore::requestAccess() {
    // Opening the book starts its service by D-Bus activation where it is not running.
    open();
}

std::optional<QList<ContactStore::Group>> EdsContactStore::groups() {
    const std::lock_guard lock(categoriesLock);
    QList<Group> groups;
    GList* list = e_categories_dup_list();
    for (GList* item = list; item; item = item->next) {
        const QString name = QString::fromUtf8(static_cast<const char*>(item->data));
        groups.append({name, name});
    }
    g_list_free_full(list, g_free);
    return groups;
}

std::optional<ContactStore::Group> EdsContactStore::addGroup(const QString& name) {
    const std::lock_guard lock(categoriesLock);
    e_categories_add(name.toUtf8().constData(), nullptr, nullptr, TRUE);
    if (!e_categories_exist(name.toUtf8().constData())) {
        return std::nullopt;
    }
    return Group{name, name};
}

void EdsContactStore::prefetch(const QStringList& ids) {
    if (ids.isEmpty() || !open()) {
        return;
    }
    // One query per few hundred contacts rather than a round trip each.
    constexpr qsizetype perQuery = 250;
    for (qsizetype from = 0; from < ids.size(); from += perQuery) {
        const QStringList some = ids.mid(from, perQuery);
        std::vector<EBookQuery*> tests;
        for (const QString& id : some) {
            tests.push_back(
                e_book_query_field_test(E_CONTACT_UID, E_BOOK_QUERY_IS, id.toUtf8().constData()));
        }
        EBookQuery* query = e_book_query_or(int(tests.size()), tests.data(), TRUE);
        char* sexp = e_book_query_to_string(query);
        e_book_query_unref(query);
        GSList* contacts = nullptr;
        GError* error = nullptr;
        const bool read =
            e_book_client_get_contacts_sync(m_book->book(), sexp, &contacts, nullptr, &error);
        g_free(sexp);
        if (!read) {
            // fetch() asks for each of these alone.
            g_clear_error(&error);
            continue;
        }
        for (GSList* item = contacts; item; item = item->next) {
            auto* contact = E_CONTACT(item->data);
            const QString id = text(contact, E_CONTACT_UID);
            if (m_book->fetched.contains(id)) {
                g_object_unref(contact);
            } else {
                m_book->fetched.insert(id, contact);
            }
        }
        g_slist_free(contacts);
        for (const QString& id : some) {
            m_book->sought.insert(id);
        }
    }
}

std::optional<ContactStore::Fields> EdsContactStore::fetch(const QString& id) {
    if (!open()) {
        return std::nullopt;
    }
    if (const auto known = m_book->fetched.constFind(id); known != m_book->fetched.cend()) {
        return fieldsOf(*known);
    }
    if (m_book->sought.contains(id)) {
        return std::nullopt;
    }
    EContact* contact = nullptr;
    GError* error = nullptr;
    if (!e_book_client_get_contact_sync(m_book->book(), id.toUtf8().constData(), &contact, nullptr,
                                        &error)) {
        g_clear_error(&error);
        return std::nullopt;
    }
    m_book->fetched.insert(id, contact);
    return fieldsOf(contact);
}

void EdsContactStore::update(const QString& id, const Fields& fields) {
    if (!m_book) {
        return;
    }
    EContact* contact = m_book->fetched.value(id);
    if (!contact) {
        return;
    }
    apply(contact, fields);
    m_book->modified.push_back(contact);
}

int EdsContactStore::add(const Fields& fields, const std::optional<QString>& groupId) {
    if (!m_book) {
        m_book = std::make_unique<Book>();
    }
    EContact* contact = e_contact_new();
    apply(contact, fields);
    if (groupId) {
        setText(contact, E_CONTACT_CATEGORIES, *groupId);
    }
    m_book->added.push_back(contact);
    return int(m_book->added.size()) - 1;
}

void EdsContactStore::remove(const QString& id) {
    if (m_book) {
        m_book->removed.push_back(id);
    }
}

ContactStore::Saved EdsContactStore::execute() {
    Saved saved;
    if (!m_book || (m_book->removed.empty() && m_book->modified.empty() && m_book->added.empty())) {
        return saved; // nothing to save
    }
    if (!open()) {
        saved.failure = m_openFailure;
        return saved;
    }
    EBookClient* book = m_book->book();
    GError* error = nullptr;
    // The book takes three batches. Removals and updates go first and the new
    // contacts last, so that a refused batch never leaves a new contact in the
    // book that nobody remembers making.
    if (!m_book->removed.empty()) {
        std::vector<QByteArray> ids;
        GSList* list = nullptr;
        for (const QString& id : m_book->removed) {
            ids.push_back(id.toUtf8());
        }
        for (auto it = ids.rbegin(); it != ids.rend(); ++it) {
            list = g_slist_prepend(list, it->data());
        }
        const bool done = e_book_client_remove_contacts_sync(book, list, E_BOOK_OPERATION_FLAG_NONE,
                                                             nullptr, &error);
        g_slist_free(list);
        if (!done) {
            saved.failure = takeError(error);
            return saved;
        }
    }
    if (!m_book->modified.empty()) {
        GSList* list = listOf(m_book->modified);
        const bool done = e_book_client_modify_contacts_sync(book, list, E_BOOK_OPERATION_FLAG_NONE,
                                                             nullptr, &error);
        g_slist_free(list);
        if (!done) {
            saved.failure = takeError(error);
            return saved;
        }
    }
    if (!m_book->added.empty()) {
        GSList* list = listOf(m_book->added);
        GSList* uids = nullptr;
        const bool done = e_book_client_add_contacts_sync(book, list, E_BOOK_OPERATION_FLAG_NONE,
                                                          &uids, nullptr, &error);
        g_slist_free(list);
        if (!done) {
            saved.failure = takeError(error);
            return saved;
        }
        for (GSList* item = uids; item; item = item->next) {
            saved.added.append(QString::fromUtf8(static_cast<const char*>(item->data)));
        }
        g_slist_free_full(uids, g_free);
        if (saved.added.size() != qsizetype(m_book->added.size())) {
            saved.failure = QStringLiteral("The address book did not name every new contact.");
        }
    }
    return saved;
}
