// GLib's headers name a struct member "signals", which Qt defines as a macro:
// they come first.
#include <libebook/libebook.h>

#include "platform/AddressBook.h"
#include "platform/EdsPhoto.h"


namespace {

QString takeError(GError*& error) {
    const QString text = error ? QString::fromUtf8(error->message) : QStringLiteral("unknown");
    g_clear_error(&error);
    return text;
}

QString field(EContact* contact, EContactField id) {
    const auto* text = static_cast<const char*>(e_contact_get_const(contact, id));
    return text ? QString::fromUtf8(text) : QString();
}

} // namespace

AddressBook::Read EdsAddressBook::read() {
    // A main context of this thread's own, so that nothing of the book is
    // dispatched on the thread that called us from elsewhere.
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    Read result = readBook();
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
    return result;
}

AddressBook::Read EdsAddressBook::readBook() {
    Read result;
    GError* error = nullptr;
    // GLib ends the whole process when its shared session-bus connection
    // closes; a book that goes away must only leave the names unknown.
    if (GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error)) {
        g_dbus_connection_set_exit_on_close(bus, FALSE);
        g_object_unref(bus);
    } else {
        result.failure = takeError(error);
        return result;
    }
    ESourceRegistry* registry = e_source_registry_new_sync(nullptr, &error);
    if (!registry) {
        result.failure = takeError(error);
        return result;
    }
    ESource* source = e_source_registry_ref_builtin_address_book(registry);
    // (guint32)-1: the local book is there at once; 0 would wait for ever.
    EClient* client =
        source ? e_book_client_connect_sync(source, guint32(-1), nullptr, &error) : nullptr;
    if (!client) {
        result.failure = source ? takeError(error) : QStringLiteral("no system address book");
        if (source) {
            g_object_unref(source);
        }
        g_object_unref(registry);
        return result;
    }
    GSList* contacts = nullptr;
    if (!e_book_client_get_contacts_sync(E_BOOK_CLIENT(client), "", &contacts, nullptr, &error)) {
        // Whatever came before the failure is used; here that is nothing.
        result.failure = takeError(error);
    }
    for (GSList* item = contacts; item; item = item->next) {
        auto* contact = E_CONTACT(item->data);
        Contact entry;
        entry.id = field(contact, E_CONTACT_UID);
        entry.fullName = field(contact, E_CONTACT_FULL_NAME);
        entry.givenName = field(contact, E_CONTACT_GIVEN_NAME);
        auto* numbers = static_cast<GList*>(e_contact_get(contact, E_CONTACT_TEL));
        for (GList* n = numbers; n; n = n->next) {
            entry.numbers.append(QString::fromUtf8(static_cast<const char*>(n->data)));
        }
        g_list_free_full(numbers, g_free);
        entry.thumbnail = contactPhoto(contact);
        result.contacts.push_back(std::move(entry));
    }
    g_slist_free_full(contacts, g_object_unref);
    g_object_unref(client);
    g_object_unref(source);
    g_object_unref(registry);
    return result;
}
