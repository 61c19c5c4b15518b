// GLib's headers name a struct member "signals", which Qt defines as a macro:
// they come first.
#include <libebook/libebook.h>

#include "EdsLab.h"

#include <stdexcept>

namespace {

QProcessEnvironment edsEnvironment(PrivateBus& bus) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SESSION_BUS_ADDRESS", bus.address());
    environment.insert("GSETTINGS_BACKEND", "memory");
    return environment;
}

} // namespace

EdsLab::EdsLab(PrivateBus& bus) {
    m_registry.start("/usr/libexec/evolution-source-registry", {}, edsEnvironment(bus));
    bus.waitForName("org.gnome.evolution.dataserver.Sources5");
    m_books.start("/usr/libexec/evolution-addressbook-factory", {}, edsEnvironment(bus));
    bus.waitForName("org.gnome.evolution.dataserver.AddressBook10");
}

void EdsLab::add(const QList<Card>& cards) {
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
    const bool added = e_book_client_add_contacts_sync(
        E_BOOK_CLIENT(client), contacts, E_BOOK_OPERATION_FLAG_NONE, nullptr, nullptr, &error);
    g_slist_free_full(contacts, g_object_unref);
    g_object_unref(client);
    g_object_unref(source);
    g_object_unref(registry);
    if (!added) {
        throw std::runtime_error(std::string("EDS add: ") + error->message);
    }
}
