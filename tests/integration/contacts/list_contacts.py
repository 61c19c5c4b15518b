# Prints every contact of Evolution Data Server's system address book as a
# vCard 3.0, read through EDS's own client library (libebook over GObject
# introspection) on the session bus of the environment.
import sys

import gi

gi.require_version("EDataServer", "1.2")
gi.require_version("EBook", "1.2")
gi.require_version("EBookContacts", "1.2")
from gi.repository import EBook, EBookContacts, EDataServer  # noqa: E402

registry = EDataServer.SourceRegistry.new_sync(None)
source = registry.ref_builtin_address_book()
# The largest wait: the local book is there at once, and 0 would wait for ever.
client = EBook.BookClient.connect_sync(source, 0xFFFFFFFF, None)
found, contacts = client.get_contacts_sync("", None)
if not found:
    sys.exit("the system address book could not be read")
VCARD_30 = EBookContacts.VCardFormat(1)
for contact in contacts:
    sys.stdout.write(contact.to_string(VCARD_30) + "\r\n")
