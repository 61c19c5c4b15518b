// GLib's headers name a struct member "signals", which Qt defines as a macro:
// they come first.
#include <libebook/libebook.h>

#include "EdsLab.h"

#include <QProcess>

#include <stdexcept>

namespace {

QProcessEnvironment edsEnvironment(PrivateBus& bus) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SESSION_BUS_ADDRESS", bus.address());
    environment.insert("GSETTINGS_BACKEND", "memory");
    return environment;
}

} // namespace

#if defined(__SANITIZE_ADDRESS__)
// GLib and Evolution Data Server are built without frame pointers, so the
// quick unwinder records only the allocator's frame of what they allocate,
// and no suppression could tell their own leaks (see scripts/lsan.supp) from
// ours. The programs that start the address book take the full unwind.
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}
#endif

namespace {

// The system address book, connected for one change; closed when it goes.
class Book {
public:
    Book() {
        GError* error = nullptr;
        // GLib would end this process when the bus it shares goes away with the test.
        if (GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error)) {
            g_dbus_connection_set_exit_on_close(connection, FALSE);
            g_object_unref(connection);
        } else {
            throw std::runtime_error(std::string("session bus: ") + error->message);
        }
        m_registry = e_source_registry_new_sync(nullptr, &error);
        if (!m_registry) {
            throw std::runtime_error(std::string("EDS registry: ") + error->message);
        }
        m_source = e_source_registry_ref_builtin_address_book(m_registry);
        m_client = e_book_client_connect_sync(m_source, guint32(-1), nullptr, &error);
        if (!m_client) {
            throw std::runtime_error(std::string("EDS book: ") + error->message);
        }
    }
    ~Book() {
        g_object_unref(m_client);
        g_object_unref(m_source);
        g_object_unref(m_registry);
    }
    Book(const Book&) = delete;
    Book& operator=(const Book&) = delete;

    EBookClient* client() const { return E_BOOK_CLIENT(m_client); }

private:
    ESourceRegistry* m_registry = nullptr;
    ESource* m_source = nullptr;
    EClient* m_client = nullptr;
};

} // namespace

EdsLab::EdsLab(PrivateBus& bus) : m_environment(edsEnvironment(bus)) {
    m_registry.start("/usr/libexec/evolution-source-registry", {}, m_environment);
    bus.waitForName("org.gnome.evolution.dataserver.Sources5");
    m_books.start("/usr/libexec/evolution-addressbook-factory", {}, m_environment);
    bus.waitForName("org.gnome.evolution.dataserver.AddressBook10");
}

void EdsLab::setNote(const QString& id, const QString& note) {
    Book book;
    GError* error = nullptr;
    EContact* contact = nullptr;
    if (!e_book_client_get_contact_sync(book.client(), id.toUtf8().constData(), &contact, nullptr,
                                        &error)) {
        throw std::runtime_error(std::string("EDS get: ") + error->message);
    }
    e_contact_set(contact, E_CONTACT_NOTE, note.toUtf8().constData());
    const bool done = e_book_client_modify_contact_sync(
        book.client(), contact, E_BOOK_OPERATION_FLAG_NONE, nullptr, &error);
    g_object_unref(contact);
    if (!done) {
        throw std::runtime_error(std::string("EDS modify: ") + error->message);
    }
}

void EdsLab::setPhoto(const QString& id, const QByteArray& jpeg) {
    Book book;
    GError* error = nullptr;
    EContact* contact = nullptr;
    if (!e_book_client_get_contact_sync(book.client(), id.toUtf8().constData(), &contact, nullptr,
                                        &error)) {
        throw std::runtime_error(std::string("EDS get: ") + error->message);
    }
    EContactPhoto* photo = e_contact_photo_new();
    photo->type = E_CONTACT_PHOTO_TYPE_INLINED;
    e_contact_photo_set_inlined(photo, reinterpret_cast<const guchar*>(jpeg.constData()),
                                gsize(jpeg.size()));
    e_contact_photo_set_mime_type(photo, "image/jpeg");
    e_contact_set(contact, E_CONTACT_PHOTO, photo);
    e_contact_photo_free(photo);
    const bool done = e_book_client_modify_contact_sync(
        book.client(), contact, E_BOOK_OPERATION_FLAG_NONE, nullptr, &error);
    g_object_unref(contact);
    if (!done) {
        throw std::runtime_error(std::string("EDS modify: ") + error->message);
    }
}

void EdsLab::remove(const QString& id) {
    Book book;
    GError* error = nullptr;
    if (!e_book_client_remove_contact_by_uid_sync(book.client(), id.toUtf8().constData(),
                                                  E_BOOK_OPERATION_FLAG_NONE, nullptr, &error)) {
        throw std::runtime_error(std::string("EDS remove: ") + error->message);
    }
}

QByteArray EdsLab::readVCards() {
    QProcess tool;
    tool.setProcessEnvironment(m_environment);
    // Debian's python3 with its GObject modules, not a python3 earlier on the PATH.
    tool.start("/usr/bin/python3", {VELNOR_EDS_LIST_SCRIPT});
    if (!tool.waitForFinished(20000)) {
        tool.kill();
        tool.waitForFinished();
        throw std::runtime_error("list_contacts.py did not finish within 20 s");
    }
    if (tool.exitStatus() != QProcess::NormalExit || tool.exitCode() != 0) {
        throw std::runtime_error("list_contacts.py failed: " +
                                 tool.readAllStandardError().toStdString());
    }
    return tool.readAllStandardOutput();
}

QStringList EdsLab::add(const QList<Card>& cards) {
    GError* error = nullptr;
    // GLib would end this process when the bus it shares goes away with the test.
    if (GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error)) {
        g_dbus_connection_set_exit_on_close(connection, FALSE);
        g_object_unref(connection);
    } else {
        throw std::runtime_error(std::string("session bus: ") + error->message);
    }
    ESourceRegistry* registry = e_source_registry_new_sync(nullptr, &error);
    if (!registry) {
        throw std::runtime_error(std::string("EDS registry: ") + error->message);
    }
    ESource* source = e_source_registry_ref_builtin_address_book(registry);
    EClient* client = e_book_client_connect_sync(source, guint32(-1), nullptr, &error);
    if (!client) {
        throw std::runtime_error(std::string("EDS book: ") + error->message);
    }
    GSList* contacts = nullptr;
    for (const Card& card : cards) {
        EContact* contact = e_contact_new();
        if (!card.fullName.isEmpty()) {
            e_contact_set(contact, E_CONTACT_FULL_NAME, card.fullName.toUtf8().constData());
        }
        if (!card.givenName.isEmpty()) {
            e_contact_set(contact, E_CONTACT_GIVEN_NAME, card.givenName.toUtf8().constData());
        }
        GList* numbers = nullptr;
        for (const QString& number : card.numbers) {
            numbers = g_list_append(numbers, g_strdup(number.toUtf8().constData()));
        }
        e_contact_set(contact, E_CONTACT_TEL, numbers);
        g_list_free_full(numbers, g_free);
        contacts = g_slist_append(contacts, contact);
    }
    GSList* uids = nullptr;
    const bool added = e_book_client_add_contacts_sync(
        E_BOOK_CLIENT(client), contacts, E_BOOK_OPERATION_FLAG_NONE, &uids, nullptr, &error);
    g_slist_free_full(contacts, g_object_unref);
    g_object_unref(client);
    g_object_unref(source);
    g_object_unref(registry);
    if (!added) {
        throw std::runtime_error(std::string("EDS add: ") + error->message);
    }
    QStringList ids;
    for (GSList* item = uids; item; item = item->next) {
        ids.append(QString::fromUtf8(static_cast<const char*>(item->data)));
    }
    g_slist_free_full(uids, g_free);
    return ids;
}
